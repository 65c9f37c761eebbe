#pragma once

#include "epi/epiObject.h"
#include "epi/epiPath.h"

#include <cstdint>
#include <string>
#include <vector>

/**
 * The entries of one folder, listed once by scan() and then read by index or stepped through.
 * Names are sorted (ignoring ASCII case, then bytewise) so that a listing is the same on every
 * file system. "." and ".." never appear; hidden entries (names that begin with '.') only when
 * asked for.
 */
class epiFolder : public epiObject
{
public:
    /** The longest name kept, in bytes; longer names are skipped. */
    static constexpr size_t kMaxName = 2048;

    epiFolder() = default;

    /**
     * Lists the folder at `path` (a trailing '/' is added when missing). The previous listing is
     * dropped first. @return false when the folder can't be read (the listing is then empty)
     */
    bool scan(const epiPath& path, bool includeHidden = false);
    /** The number of entries. */
    int32_t count() const;
    /** The name of entry `i`; empty out of range. */
    epiText nameAt(int32_t i) const;
    /** The folder and the name of entry `i`, with a trailing '/' for a folder; empty out of range. */
    epiPath pathAt(int32_t i) const;
    /** Entry `i` is a folder. */
    bool isFolderAt(int32_t i) const;
    /** The folder that was scanned, with its trailing '/'. */
    const epiPath& path() const { return path_; }

    /** Steps to the next entry. @return false past the last */
    bool next();
    /** The index of the present entry; -1 before the first next(). */
    int32_t index() const { return index_; }
    /** The name of the present entry; empty when there is none. */
    epiText currentName() const;
    /** The path of the present entry; empty when there is none. */
    epiPath currentPath() const;
    /** The present entry is a folder. */
    bool currentIsFolder() const;
    /** Back to before the first entry. */
    void rewind();

    /**
     * Appends the names of the files under `path` to `target`, one a line, each followed by CR LF.
     * With `recursive` the files of the folders below come too, as "sub/name"; folders themselves
     * are not listed. Hidden entries are left out. @return false when `path` can't be read
     */
    bool listTo(const epiPath& path, epiText* target, bool recursive);

private:
    struct Entry
    {
        std::string name;
        bool isFolder;
    };

    std::vector<Entry> names_;
    epiPath path_;
    int32_t index_ = -1;
};
