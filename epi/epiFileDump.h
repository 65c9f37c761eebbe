#pragma once

#include "epi/epiObject.h"
#include "epi/epiPath.h"

#include <cstdint>

class epiAtomsFile;

/**
 * A block of bytes that loads and saves itself, to a file of its own or as two atoms of an atoms
 * file. The block is either owned (allocated with std::malloc and freed here) or lent by someone
 * else, who keeps it alive while the dump points to it.
 */
class epiFileDump : public epiObject
{
public:
    epiFileDump() = default;
    epiFileDump(const epiFileDump&) = delete;
    epiFileDump& operator=(const epiFileDump&) = delete;
    /** Frees the block when owned. */
    ~epiFileDump() override;

    /** Writes the atom 'size' (the length as a 32-bit value) and then the atom 'data' (the bytes). */
    virtual bool saveAtoms(epiAtomsFile* atoms);
    /**
     * Writes `length` bytes of `data`, or this dump's own bytes when `data` is null, to `path`,
     * which is created or rewritten to exactly that length. `a` and `b` are spare.
     */
    virtual bool saveFile(const epiPath& path, const void* data, uint32_t length, int32_t a = 0,
                          int32_t b = 0);
    /** Reads 'size' and then 'data' into a new owned block. @return false (dump empty) on failure */
    virtual bool loadAtoms(epiAtomsFile* atoms);
    /** Reads the whole file into a new owned block. @return false (dump empty) on failure */
    virtual bool loadFile(const epiPath& path);
    /** The bytes; null when there are none. */
    virtual uint8_t* data() const;
    /** The length in bytes; 0 when there is no block. */
    virtual uint32_t size() const;
    /** Frees the present block, then points to `length` bytes at `bytes`; `owned` blocks come from
     * std::malloc. */
    virtual void attach(void* bytes, uint32_t length, bool owned);
    /** An owned copy of `dump`'s bytes. */
    virtual bool copyFrom(const epiFileDump& dump);
    /** An owned copy of `length` bytes at `bytes`. @return false for a null pointer */
    virtual bool copyBytes(const void* bytes, uint32_t length);
    /**
     * Frees the present block and allocates `length` zeroed bytes. With `owned` false the block is
     * not freed here: whoever takes it frees it with std::free.
     */
    virtual bool allocate(uint32_t length, bool owned);
    /** The sizes or the bytes differ. */
    virtual bool differs(const epiFileDump& other) const;
    /** Frees the block when owned; forgets it in any case. */
    virtual void free();
    /**
     * Copies `length` bytes from `offset` of the block to `target`.
     * @return false, copying nothing, when the range isn't inside the block
     */
    virtual bool readAt(uint32_t offset, void* target, uint32_t length) const;
    /** Copies `length` bytes from `source` to `offset` of the block; false outside the block. */
    virtual bool writeAt(uint32_t offset, const void* source, uint32_t length);

    /** The block is freed here. */
    bool owned() const { return owned_; }

private:
    uint8_t* data_ = nullptr;
    uint32_t size_ = 0;
    bool owned_ = false;
};
