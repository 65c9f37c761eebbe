#include "epi/epiPath.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const epiPath* gDefaultBase = nullptr;
epiPath::DialogHandler gDialogHandler = nullptr;

constexpr size_t kNativeMax = epiPath::kNativeCapacity - 1;

void copyOut(char* dest, const std::string& text)
{
    if (dest == nullptr)
        return;
    const size_t n = text.size() < kNativeMax ? text.size() : kNativeMax;
    std::memcpy(dest, text.data(), n);
    dest[n] = '\0';
}

// Steps 1 and 2 of the native form: a relative path is put under the base's folder.
std::string withBase(const epiPath& path, const epiPath* base)
{
    std::string result;
    const epiPath* start = base != nullptr ? base : gDefaultBase;
    if (start != nullptr && !path.isAbsolute())
        result = start->folder();
    result += path;
    return result;
}

std::string homeFolder()
{
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return home;
    if (const passwd* pw = getpwuid(getuid()); pw != nullptr && pw->pw_dir != nullptr && pw->pw_dir[0] == '/')
        return pw->pw_dir;
    return std::string();
}

std::string configFolder()
{
    // An XDG variable that is empty or relative is ignored, as the base directory rules say.
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && config[0] == '/')
        return config;
    const std::string home = homeFolder();
    return home.empty() ? std::string() : home + "/.config";
}

// The desktop folder as the user's XDG_DESKTOP_DIR names it, else ~/Desktop.
std::string desktopFolder()
{
    const std::string home = homeFolder();
    if (home.empty())
        return std::string();
    const std::string config = configFolder();
    std::ifstream dirs(config + "/user-dirs.dirs");
    std::string line;
    while (dirs && std::getline(dirs, line))
    {
        const std::string key = "XDG_DESKTOP_DIR=";
        if (line.compare(0, key.size(), key) != 0)
            continue;
        std::string value = line.substr(key.size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        if (value.compare(0, 5, "$HOME") == 0)
            value = home + value.substr(5);
        if (!value.empty() && value[0] == '/')
            return value;
    }
    return home + "/Desktop";
}

std::string programFolder()
{
    char buffer[4096];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0)
        return std::string();
    std::string exe(buffer, size_t(n));
    const size_t slash = exe.rfind('/');
    return slash == std::string::npos ? std::string() : exe.substr(0, slash + 1);
}

// Creates `folder` and every missing folder above it; failures are left for the caller to notice.
void createFolders(const std::string& folder)
{
    for (size_t pos = 1; pos <= folder.size(); ++pos)
    {
        if (pos == folder.size() || folder[pos] == '/')
        {
            const std::string part = folder.substr(0, pos);
            if (!part.empty())
                ::mkdir(part.c_str(), 0777);
        }
    }
}

} // namespace

epiPath::epiPath(const char* chars) : epiText(chars) {}

epiPath::epiPath(std::string_view bytes) : epiText(bytes) {}

epiPath::epiPath(const std::string& bytes) : epiText(bytes) {}

epiPath::epiPath(const epiText& text) : epiText(text) {}

epiPath& epiPath::operator=(const char* chars)
{
    assignChars(chars);
    return *this;
}

epiPath& epiPath::operator=(const epiText& text)
{
    assignText(&text);
    return *this;
}

epiPath& epiPath::operator=(const std::string& bytes)
{
    std::string::assign(bytes);
    return *this;
}

epiPath& epiPath::operator=(std::string_view bytes)
{
    std::string::assign(bytes);
    return *this;
}

void epiPath::toNative(char* dest, const epiPath* base) const
{
    // Linux paths are already in the portable notation: only the base is applied.
    copyOut(dest, withBase(*this, base));
}

void epiPath::fromNative(const char* native)
{
    assignChars(native);
}

void epiPath::removeLast()
{
    const size_t slash = rfind('/');
    if (slash == npos)
        epiText::clear();
    else
        resize(slash + 1);
}

void epiPath::ensureTrailingSlash()
{
    if (!isEmpty() && lastChar() != '/')
        push_back('/');
}

void epiPath::appendFolderChars(const char* chars)
{
    appendChars(chars);
    ensureTrailingSlash();
}

void epiPath::appendFolderText(const epiText* text)
{
    appendText(text);
    ensureTrailingSlash();
}

void epiPath::goUp()
{
    removeLast();
    if (lastChar() == '/')
        dropLastChar();
    removeLast();
}

bool epiPath::isFolder() const
{
    return lastChar() == '/';
}

bool epiPath::exists() const
{
    if (isEmpty())
        return false;
    struct stat info;
    return ::stat(toNativeText().c_str(), &info) == 0;
}

bool epiPath::isAbsolute() const
{
    return !isEmpty() && (*this)[0] == '/';
}

bool epiPath::askOpen()
{
    if (gDialogHandler == nullptr)
        return false;
    return gDialogHandler(*this, false);
}

bool epiPath::askSave()
{
    if (gDialogHandler == nullptr)
        return false;
    return gDialogHandler(*this, true);
}

void epiPath::toNativeWide(char16_t* dest) const
{
    if (dest == nullptr)
        return;
    char native[kNativeCapacity];
    toNative(native, nullptr);
    epiText(native).toWide(dest, kNativeWideCapacity);
}

void epiPath::fromNativeWide(const char16_t* native)
{
    epiText text;
    text.fromWide(native);
    fromNative(text.cstr());
}

epiPath epiPath::folder() const
{
    epiPath result(*this);
    result.removeLast();
    return result;
}

void epiPath::replaceLast(const epiText* last)
{
    removeLast();
    appendText(last);
}

epiText epiPath::lastComponent() const
{
    std::string_view view(*this);
    if (!view.empty() && view.back() == '/')
        view.remove_suffix(1);
    const size_t slash = view.rfind('/');
    return epiText(slash == std::string_view::npos ? view : view.substr(slash + 1));
}

epiText epiPath::extension() const
{
    return lastComponent().lastField('.');
}

epiText epiPath::baseName() const
{
    const epiText name = lastComponent();
    const size_t dot = name.rfind('.');
    if (dot == npos)
        return name;
    return name.left(dot);
}

void epiPath::replaceExtension(const epiText* extension)
{
    epiText rebuilt = folder();
    rebuilt.appendTextValue(baseName());
    rebuilt.appendChar('.');
    rebuilt.appendText(extension);
    assignText(&rebuilt);
}

void epiPath::replaceExtension(const char* extension)
{
    const epiText text(extension);
    replaceExtension(&text);
}

void epiPath::appendToBaseName(const epiText* suffix)
{
    // A name without a '.' has itself as its extension (see extension()), so "take" becomes
    // "take_tmp.take". The program only does this to names that carry an extension.
    const epiText oldExtension = extension();
    epiText rebuilt = folder();
    rebuilt.appendTextValue(baseName());
    rebuilt.appendText(suffix);
    rebuilt.appendChar('.');
    rebuilt.appendTextValue(oldExtension);
    assignText(&rebuilt);
}

void epiPath::appendToBaseName(const char* suffix)
{
    const epiText text(suffix);
    appendToBaseName(&text);
}

bool epiPath::remove() const
{
    if (isEmpty())
        return false;
    return ::unlink(toNativeText().c_str()) == 0;
}

bool epiPath::setSpecialFolder(uint32_t code, bool create)
{
    std::string found;
    if (code == epiCode("sApp"))
        found = programFolder();
    else if (code == epiCode("sRot"))
        found = "/";
    else if (code == epiCode("uAps") || code == epiCode("uPrf"))
        found = configFolder();
    else if (code == epiCode("uDes"))
        found = desktopFolder();
    else if (code == epiCode("uDoc") || code == epiCode("uHom"))
        found = homeFolder();
    else
        return false;
    if (found.empty())
        return false;
    assignChars(found.c_str());
    ensureTrailingSlash();
    if (create)
        createFolders(*this);
    return true;
}

epiText epiPath::toNativeText(const epiPath* base) const
{
    return epiText(withBase(*this, base));
}

void epiPath::toWindowsNative(char* dest, const epiPath* base) const
{
    std::string text = withBase(*this, base);
    for (char& c : text)
    {
        if (c == '/')
            c = '\\';
    }
    if (text.compare(0, 9, "\\Volumes\\") == 0 && text.size() >= 10)
    {
        // "\Volumes\C\rest" is drive C: the letter at 9, ":\", then everything from 11 on.
        std::string drive;
        drive.push_back(text[9]);
        drive += ":\\";
        if (text.size() > 11)
            drive += text.substr(11, kNativeMax);
        text = drive;
    }
    copyOut(dest, text);
}

void epiPath::fromWindowsNative(const char* native)
{
    assignChars(native);
    replaceChar('\\', '/');
    if (find(":/") == npos)
        return;
    // "C:/x/y" becomes "/Volumes/C/x/y": the colon goes, the rest follows field by field.
    epiText rebuilt("/Volumes/");
    rebuilt.appendTextValue(field(0, ':'));
    const int32_t count = fieldCount(':');
    for (int32_t i = 1; i < count && i < 1000; ++i)
        rebuilt.appendTextValue(field(i, ':'));
    assignText(&rebuilt);
}

void epiPath::setDefaultBase(const epiPath* base)
{
    gDefaultBase = base;
}

const epiPath* epiPath::defaultBase()
{
    return gDefaultBase;
}

void epiPath::setDialogHandler(DialogHandler handler)
{
    gDialogHandler = handler;
}
