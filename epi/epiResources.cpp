#include "epi/epiResources.h"

#include "epi/epiFileDump.h"
#include "epi/epiFolder.h"
#include "epi/epiXmlChunk.h"

#include <cstdio>
#include <cstdlib>
#include <map>

namespace
{

struct LinkedRange
{
    const void* data;
    uint32_t size;
};

// Built on first use, so that ranges registered from other files' static constructors find it.
std::map<int32_t, LinkedRange>& linkedTable()
{
    static std::map<int32_t, LinkedRange> table;
    return table;
}

// A name from a pack's list is cut here, as the list stores names of bounded length.
constexpr size_t kMaxListedName = 2000;

bool extensionIs(const epiPath& path, const char* extension)
{
    return path.extension().equalsNoCase(extension);
}

} // namespace

namespace epiLinkedResources
{

void add(int32_t id, const void* data, uint32_t size)
{
    linkedTable()[id] = LinkedRange{data, size};
}

void remove(int32_t id)
{
    linkedTable().erase(id);
}

bool find(const char* name, const void** data, uint32_t* size)
{
    if (name == nullptr || name[0] != '#' || name[1] == '\0')
        return false;
    char* end = nullptr;
    const long id = std::strtol(name + 1, &end, 10);
    if (*end != '\0' || id < INT32_MIN || id > INT32_MAX)
        return false;
    const auto found = linkedTable().find(int32_t(id));
    if (found == linkedTable().end())
        return false;
    *data = found->second.data;
    *size = found->second.size;
    return true;
}

} // namespace epiLinkedResources

// The folder medium.

bool epiResMediaFiles::openId(int32_t, void*)
{
    return false;
}

bool epiResMediaFiles::open(const epiPath& path)
{
    rootPath_ = path;
    rootPath_.ensureTrailingSlash();
    epiPath marker = rootPath_;
    marker.appendChars("epi.frs");
    return marker.exists();
}

void epiResMediaFiles::close()
{
    rootPath_.clear();
}

bool epiResMediaFiles::read(const epiText& name, epiFileDump& dump)
{
    epiPath path;
    fullPath(name, path);
    return dump.loadFile(path);
}

bool epiResMediaFiles::write(const epiText& name, const void* data, uint32_t length)
{
    epiPath path;
    fullPath(name, path);
    // The dump only lends the caller's bytes to the writer; it never frees them.
    epiFileDump dump;
    dump.attach(const_cast<void*>(data), length, false);
    const bool ok = dump.saveFile(path, nullptr, length);
    dump.attach(nullptr, 0, false);
    return ok;
}

bool epiResMediaFiles::exists(const epiText& name)
{
    epiPath path;
    fullPath(name, path);
    return path.exists();
}

bool epiResMediaFiles::fullPath(const epiText& name, epiPath& dest)
{
    dest = rootPath_;
    dest.appendText(&name);
    return true;
}

bool epiResMediaFiles::list(const epiText& folder, epiText& dest, bool recursive)
{
    epiPath path;
    fullPath(folder, path);
    path.ensureTrailingSlash();
    if (!path.exists())
        return false;
    epiFolder lister;
    return lister.listTo(path, &dest, recursive);
}

// The pack file medium.

epiResMediaPack::~epiResMediaPack()
{
    pack_.close();
}

bool epiResMediaPack::openId(int32_t, void*)
{
    return false;
}

bool epiResMediaPack::open(const epiPath& path)
{
    if (!pack_.openFile(path))
        return false;
    rootPath_ = path;
    return true;
}

void epiResMediaPack::close()
{
    pack_.close();
}

bool epiResMediaPack::read(const epiText& name, epiFileDump& dump)
{
    return pack_.load(name.c_str(), dump);
}

bool epiResMediaPack::write(const epiText&, const void*, uint32_t)
{
    return true;
}

bool epiResMediaPack::exists(const epiText& name)
{
    return pack_.exists(name.c_str());
}

bool epiResMediaPack::fullPath(const epiText&, epiPath& dest)
{
    dest.clear();
    return false;
}

bool epiResMediaPack::list(const epiText& folder, epiText& dest, bool recursive)
{
    std::string prefix = "/";
    prefix += folder;
    // "fonts" lists the folder fonts/, not a sibling file that merely starts with "fonts".
    if (prefix.size() > 1 && prefix.back() != '/')
        prefix += '/';
    for (int32_t i = 0; i < pack_.count(); ++i)
    {
        const epiResourcePack::fileElem* elem = pack_.elemAt(i);
        if (elem->compare(0, prefix.size(), prefix) != 0)
            continue;
        std::string rest = elem->substr(prefix.size());
        if (rest.size() > kMaxListedName)
            rest.resize(kMaxListedName);
        if (rest.empty() || (!recursive && rest.find('/') != std::string::npos))
            continue;
        dest.appendChars(rest.c_str());
        dest.appendNewline();
    }
    // As for a folder, a list with nothing in it is still a list.
    return pack_.atoms() != nullptr;
}

// The pack in the executable.

epiResMediaNativePack::~epiResMediaNativePack()
{
    close();
}

bool epiResMediaNativePack::openId(int32_t id, void* module)
{
    close();
    char name[16];
    std::snprintf(name, sizeof name, "#%d", int(id));
    const void* data = nullptr;
    uint32_t size = 0;
    // Only the executable has linked ranges; another module has none to offer.
    if (module != nullptr || !epiLinkedResources::find(name, &data, &size))
        return false;
    // The memory file's interface takes a writable pointer; the pack only ever reads through it.
    if (!memory_.setBuffer(const_cast<void*>(data), size) || !atoms_.attach(&memory_, true))
        return false;
    return pack_.parse(&atoms_);
}

void epiResMediaNativePack::close()
{
    pack_.close();
    atoms_.close();
    memory_.close();
}

// The resources.

epiResources::~epiResources()
{
    closeMedia();
}

const char* epiResources::prefix(uint32_t kind)
{
    switch (kind)
    {
    case epiCode("text"):
        return "texts/";
    case epiCode("scrp"):
        return "scripts/";
    case epiCode("mdls"):
        return "models/";
    case epiCode("menu"):
        return "menus/";
    case epiCode("lnks"):
        return "links/";
    case epiCode("imag"):
        return "images/";
    case epiCode("laya"):
        return "layouts/";
    case epiCode("gltx"):
        return "textures/";
    case epiCode("auxr"):
        return "aux/";
    case epiCode("fnts"):
        return "fonts/";
    default:
        return "";
    }
}

void epiResources::resolve(const epiText* name, uint32_t kind, epiText& dest)
{
    dest.assignChars(prefix(kind));
    if (name != nullptr)
        dest.appendText(name);
}

bool epiResources::adopt(epiResMediaFiles* medium, const epiPath& path)
{
    medium->setOwner(owner());
    if (!medium->open(path))
    {
        delete medium;
        return false;
    }
    media_ = medium;
    return true;
}

bool epiResources::openPath(const epiPath& path)
{
    closeMedia();
    if (extensionIs(path, "frs"))
        return openFolder(path);
    if (extensionIs(path, "prs"))
        return openPack(path);
    return false;
}

bool epiResources::openFolder(const epiPath& path)
{
    closeMedia();
    return adopt(new epiResMediaFiles(), path);
}

bool epiResources::openPack(const epiPath& path)
{
    closeMedia();
    return adopt(new epiResMediaPack(), path);
}

bool epiResources::openPathChars(const char* path)
{
    return openPath(epiPath(path != nullptr ? path : ""));
}

bool epiResources::openNative(int32_t id, void* module)
{
    closeMedia();
    auto* medium = new epiResMediaNativePack();
    medium->setOwner(owner());
    if (!medium->openId(id == 0 ? epiLinkedResources::kProgramPackId : id, module))
    {
        delete medium;
        return false;
    }
    media_ = medium;
    return true;
}

bool epiResources::openSearch(const char* appName, const char* fileName)
{
    if (appName == nullptr)
        appName = "";
    if (fileName == nullptr)
        fileName = appName;
    if (openNative(0, nullptr))
        return true;
    const std::string bundled = std::string(appName) + ".app/Contents/Resources/" + fileName;
    const std::string beside = std::string("../Resources/") + fileName;
    for (const std::string& base : {std::string(fileName), bundled, beside})
    {
        for (const char* extension : {".frs", ".prs"})
        {
            if (openPath(epiPath(base + extension)))
                return true;
        }
    }
    return false;
}

void epiResources::closeMedia()
{
    if (media_ == nullptr)
        return;
    media_->close();
    delete media_;
    media_ = nullptr;
}

void epiResources::flushMedia()
{
    if (media_ != nullptr)
        media_->flush();
}

bool epiResources::readText(const epiText* name, uint32_t kind, epiText& dest)
{
    epiFileDump dump;
    if (!readDump(name, kind, dump))
        return false;
    dest.assignBytes(dump.size(), dump.data());
    return true;
}

bool epiResources::readTextChars(const char* name, uint32_t kind, epiText& dest)
{
    const epiText text(name != nullptr ? name : "");
    return readText(&text, kind, dest);
}

bool epiResources::writeText(const epiText* name, uint32_t kind, const epiText* data)
{
    if (media_ == nullptr || data == nullptr)
        return false;
    epiText path;
    resolve(name, kind, path);
    return media_->write(path, data->data(), uint32_t(data->size()));
}

bool epiResources::writeTextChars(const char* name, uint32_t kind, const epiText* data)
{
    const epiText text(name != nullptr ? name : "");
    return writeText(&text, kind, data);
}

bool epiResources::readDump(const epiText* name, uint32_t kind, epiFileDump& dump)
{
    if (media_ == nullptr)
        return false;
    epiText path;
    resolve(name, kind, path);
    return media_->read(path, dump);
}

bool epiResources::isFolderMedia()
{
    return media_ != nullptr && media_->isFolder();
}

bool epiResources::fullPath(const epiText* name, uint32_t kind, epiPath& dest)
{
    if (!isFolderMedia())
        return false;
    epiText path;
    resolve(name, kind, path);
    return media_->fullPath(path, dest);
}

bool epiResources::layoutSize(const epiText* name, epiPoint& size)
{
    epiText text;
    if (!readText(name, epiCode("laya"), text))
        return false;
    epiXmlChunk document;
    document.setText(text);
    const epiXmlChunk content = document.child("epi").child("content");
    epiXmlChunk element;
    if (content.isEmpty() || !content.findElementChars("size", &element, nullptr))
        return false;
    const epiText value = element.text();
    if (value.fieldCount(',') < 2)
        return false;
    size.x_ = value.field(0, ',').toInt();
    size.y_ = value.field(1, ',').toInt();
    return true;
}

bool epiResources::listKind(uint32_t kind, epiText& dest, bool recursive)
{
    if (media_ == nullptr)
        return false;
    return media_->list(epiText(prefix(kind)), dest, recursive);
}

bool epiResources::findByInternalName(uint32_t kind, uint32_t code, epiText& dest)
{
    epiText names;
    if (!listKind(kind, names, true))
        return false;
    const int32_t lines = names.lineCount();
    for (int32_t i = 0; i < lines; ++i)
    {
        const epiPath name(names.line(i));
        if (name.isEmpty() || !extensionIs(name, "xml"))
            continue;
        epiText text;
        if (!readText(&name, kind, text))
            continue;
        epiXmlChunk document;
        document.setText(text);
        // The name is a code as written: a trailing blank ("Bar ") belongs to it.
        const epiXmlChunk inner = document.child("epi").child("content").child("name");
        if (!inner.isEmpty() && inner.rawText().toCode() == code)
        {
            dest.assignText(&name);
            return true;
        }
    }
    return false;
}

void epiResources::stop()
{
    closeMedia();
    epiApplicationObject::stop();
}
