#pragma once

#include "epi/epiAtomsFile.h"
#include "epi/epiFile.h"
#include "epi/epiObject.h"
#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>
#include <memory>
#include <vector>

class epiFileDump;

/**
 * A table of named byte ranges in one atoms file, read without unpacking. The file holds, in
 * this order: a version atom 'eRpk' (1), a count atom 'sCnt' (N), then N times a name 'Name', a
 * size 'Size' and the bytes 'Data', and finally an end atom 'Rend' that is not read back.
 *
 * Names are absolute within the pack ("/layouts/mainPanel.xml"): they begin with '/', use '/'
 * between folders and keep their case. Parsing reads only the headers; an entry's bytes are read
 * when it is loaded, so a pack can lie over the program's own memory with nothing copied.
 *
 * A pack and its atoms file share one stream position: they belong to one thread at a time.
 */
class epiResourcePack : public epiObject
{
public:
    /** Pack format version, held in the first atom. */
    static constexpr uint32_t kPackVersion = 1;
    static constexpr uint32_t kTagVersion = epiCode("eRpk");
    static constexpr uint32_t kTagCount = epiCode("sCnt");
    static constexpr uint32_t kTagName = epiCode("Name");
    static constexpr uint32_t kTagSize = epiCode("Size");
    static constexpr uint32_t kTagData = epiCode("Data");
    static constexpr uint32_t kTagEnd = epiCode("Rend");

    /** One entry: its name as a path, and where its bytes lie in the file. */
    class fileElem : public epiPath
    {
    public:
        fileElem(const epiText& name, uint32_t offset, uint32_t size);
        /** Offset of the entry's bytes from the start of the file. */
        uint32_t offset() const { return offset_; }
        /** Length of the entry's bytes (named apart from the text's own size()). */
        uint32_t entrySize() const { return size_; }

    private:
        uint32_t offset_;
        uint32_t size_;
    };

    epiResourcePack() = default;
    epiResourcePack(const epiResourcePack&) = delete;
    epiResourcePack& operator=(const epiResourcePack&) = delete;
    ~epiResourcePack() override;

    /**
     * Opens the pack at `path` for reading and parses it. Whatever was open is closed first.
     * @return false, with the pack left empty, when the file won't open or isn't a whole pack
     */
    bool openFile(const epiPath& path);

    /**
     * Parses a pack that lies in memory, `size` bytes at `data`, through a memory file made
     * here. The bytes are borrowed and must outlive the pack; nothing is copied.
     * @return false, with the pack left empty, when the bytes aren't a whole pack
     */
    bool openMemory(const void* data, uint32_t size);

    /**
     * Reads the table of entries from the stream's present position (just behind the head).
     * @param atoms an attached atoms file, lent to the pack (not deleted by it); null uses the
     *        one that openFile() has made
     * @return true when the version is 1 and all N entries were read; otherwise the pack is left
     *         without entries and without an atoms file
     */
    bool parse(epiAtomsFile* atoms = nullptr);

    /**
     * The first entry named exactly `name` (case-sensitive), with a '/' put in front of a name
     * that lacks one. @param elem receives the entry when given
     */
    bool find(const char* name, const fileElem** elem) const;
    bool find(const epiText& name, const fileElem** elem) const;
    /** find() without the result. */
    bool exists(const char* name) const { return find(name, nullptr); }

    /**
     * Reads the entry's bytes into `dest` as a block that `dest` owns.
     * @return false for an unknown name or a failed read; `dest` is then empty
     */
    bool load(const char* name, epiFileDump& dest);
    /** load() into a text that receives the bytes as they are. */
    bool loadText(const char* name, epiText& dest);

    /** The number of entries. */
    int32_t count() const { return int32_t(entries_.size()); }
    /** The entry at `index` in file order, null past the end. */
    const fileElem* elemAt(int32_t index) const;
    /** Copies the entry's name into `dest`. @return false for an index beyond the end */
    bool nameAt(int32_t index, epiText* dest) const;

    /** Closes the atoms file and forgets every entry; deletes what the pack made itself. */
    void close();

    /** The atoms file that the entries are read from, null when closed. */
    epiAtomsFile* atoms() const { return atoms_; }

private:
    bool readAt(const fileElem& elem, void* target);
    void dropAtoms();

    std::vector<std::unique_ptr<fileElem>> entries_;
    epiAtomsFile* atoms_ = nullptr;
    bool ownsAtoms_ = false;
    // The memory file of openMemory(); the atoms file only borrows it.
    std::unique_ptr<epiRamFile> memory_;
};
