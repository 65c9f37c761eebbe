#include "epi/epiFolder.h"

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>

namespace
{

char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

bool nameOrder(const std::string& a, const std::string& b)
{
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i)
    {
        const char x = lowerAscii(a[i]);
        const char y = lowerAscii(b[i]);
        if (x != y)
            return uint8_t(x) < uint8_t(y);
    }
    if (a.size() != b.size())
        return a.size() < b.size();
    return a < b;
}

// Closes the directory stream on every way out.
struct DirHandle
{
    DIR* dir;
    explicit DirHandle(const char* path) : dir(::opendir(path)) {}
    ~DirHandle()
    {
        if (dir != nullptr)
            ::closedir(dir);
    }
    DirHandle(const DirHandle&) = delete;
    DirHandle& operator=(const DirHandle&) = delete;
};

void listFiles(const epiPath& folder, const std::string& prefix, epiText* target, bool recursive)
{
    epiFolder listing;
    if (!listing.scan(folder))
        return;
    while (listing.next())
    {
        const std::string name = prefix + std::string(listing.currentName());
        if (listing.currentIsFolder())
        {
            if (recursive)
                listFiles(listing.currentPath(), name + "/", target, true);
            continue;
        }
        target->appendChars(name.c_str());
        target->appendNewline();
    }
}

} // namespace

bool epiFolder::scan(const epiPath& path, bool includeHidden)
{
    names_.clear();
    rewind();
    path_ = path;
    path_.ensureTrailingSlash();
    if (path_.isEmpty())
        return false;
    const epiText native = path_.toNativeText();
    DirHandle handle(native.cstr());
    if (handle.dir == nullptr)
        return false;
    while (const dirent* entry = ::readdir(handle.dir))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (!includeHidden && name[0] == '.')
            continue;
        if (name.size() > kMaxName)
            continue;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK)
        {
            // The file system didn't say, or it is a link: ask about what the name leads to.
            struct stat info;
            const std::string full = std::string(native) + name;
            isFolder = ::stat(full.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        }
        names_.push_back(Entry{name, isFolder});
    }
    std::sort(names_.begin(), names_.end(),
              [](const Entry& a, const Entry& b) { return nameOrder(a.name, b.name); });
    return true;
}

int32_t epiFolder::count() const
{
    return int32_t(names_.size());
}

epiText epiFolder::nameAt(int32_t i) const
{
    if (i < 0 || i >= count())
        return epiText();
    return epiText(names_[size_t(i)].name);
}

epiPath epiFolder::pathAt(int32_t i) const
{
    if (i < 0 || i >= count())
        return epiPath();
    epiPath result(path_);
    result.appendChars(names_[size_t(i)].name.c_str());
    if (names_[size_t(i)].isFolder)
        result.ensureTrailingSlash();
    return result;
}

bool epiFolder::isFolderAt(int32_t i) const
{
    return i >= 0 && i < count() && names_[size_t(i)].isFolder;
}

bool epiFolder::next()
{
    if (index_ + 1 >= count())
    {
        index_ = count();
        return false;
    }
    ++index_;
    return true;
}

epiText epiFolder::currentName() const
{
    return nameAt(index_);
}

epiPath epiFolder::currentPath() const
{
    return pathAt(index_);
}

bool epiFolder::currentIsFolder() const
{
    return isFolderAt(index_);
}

void epiFolder::rewind()
{
    index_ = -1;
}

bool epiFolder::listTo(const epiPath& path, epiText* target, bool recursive)
{
    if (target == nullptr)
        return false;
    epiPath folder(path);
    folder.ensureTrailingSlash();
    epiFolder probe;
    if (!probe.scan(folder))
        return false;
    listFiles(folder, std::string(), target, recursive);
    return true;
}
