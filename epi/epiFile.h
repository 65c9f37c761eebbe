#pragma once

#include "epi/epiObject.h"
#include "epi/epiPath.h"

#include <cstdint>

/**
 * A plain file on disk, and the interface through which every format of the framework reads and
 * writes, so that a reader doesn't know whether its bytes come from disk or from memory.
 *
 * Sizes and positions are 32-bit: files past 4 GB are not supported. Everything reports with false
 * or 0; nothing prints or throws. A file object belongs to one thread at a time.
 */
class epiFile : public epiObject
{
public:
    /** Open for reading. Without kWrite the file must exist and is read only. */
    static constexpr int32_t kRead = 1;
    /** Open for reading and writing; the file is created when missing. */
    static constexpr int32_t kWrite = 2;
    /** With kWrite: the file is deleted first, so it starts empty. */
    static constexpr int32_t kDeleteFirst = 64;
    /** With kWrite: the file must already exist. */
    static constexpr int32_t kMustExist = 128;

    epiFile() = default;
    epiFile(const epiFile&) = delete;
    epiFile& operator=(const epiFile&) = delete;
    /** Closes the file, with close()'s truncation. */
    ~epiFile() override;

    /**
     * Opens `path` with the flags above; `a` and `b` are spare and unused.
     * @return false when already open (the open file stays as it was) or when the system refuses
     */
    virtual bool open(const epiPath& path, int32_t flags, int32_t a = 0, int32_t b = 0);
    /**
     * Sets the end of the file at the present position, then closes. So a file rewritten shorter
     * loses its old tail, and a writer must close with its position at the end.
     * @return false when there was nothing open
     */
    virtual bool close();
    /**
     * Reads up to `length` bytes. False when closed; true for a length of 0.
     * @param outCount when given receives the count, and the result is true when it isn't 0;
     *                 without it the result is true only when all `length` bytes were read
     */
    virtual bool read(void* buffer, int32_t length, int32_t* outCount = nullptr);
    /** Writes `length` bytes; results as read(). */
    virtual bool write(const void* buffer, int32_t length, int32_t* outCount = nullptr);
    /** Moves to `offset` from the start (whence 0), the present position (1) or the end (2). */
    virtual bool seek(int32_t offset, int32_t whence);
    /** The position; 0 when closed or on failure. */
    virtual uint32_t tell() const;
    /** The size in bytes; 0 when closed or on failure. */
    virtual uint32_t size() const;
    /** A file is open. */
    virtual bool isOpen() const;

protected:
    /** The system's file descriptor, -1 when closed. */
    int handle_ = -1;
};

/**
 * A file in memory with epiFile's interface. It keeps several differences from epiFile that the
 * pack and atoms readers over program memory were built around; each is marked in the code:
 * open() always fails, setBuffer() borrows, close() forgets the buffer without freeing it, a read
 * advances by the length asked even past the end, seek from the end counts backwards, and size()
 * is the capacity of the buffer.
 *
 * Memory made here (createBuffer(), growth by write()) comes from std::malloc: whoever takes it
 * with getBuffer() and then close() frees it with std::free.
 */
class epiRamFile : public epiFile
{
public:
    /** Bytes made by createBuffer(), and the slack added whenever write() grows the buffer. */
    static constexpr int32_t kChunk = 100000;

    epiRamFile() = default;
    /** Forgets the buffer like close(): memory made here and not freed with freeBuffer() stays. */
    ~epiRamFile() override;

    /** Always false: a memory file is given its buffer with setBuffer() or createBuffer(). */
    bool open(const epiPath& path, int32_t flags, int32_t a = 0, int32_t b = 0) override;
    /** Clears buffer, size and position without freeing anything. False when there was no buffer. */
    bool close() override;
    /**
     * Copies up to `length` bytes, clipped to what is left; a null `buffer` skips the copy. The
     * position advances by `length` even past the end. False with no buffer.
     */
    bool read(void* buffer, int32_t length, int32_t* outCount = nullptr) override;
    /** Writes at the position, growing the buffer to position + length + kChunk when needed. */
    bool write(const void* buffer, int32_t length, int32_t* outCount = nullptr) override;
    /**
     * whence 1 is relative, 2 sets size() - offset (a positive offset goes backwards), any other
     * value is absolute. A target outside 0 .. size() moves to 0 and returns false.
     */
    bool seek(int32_t offset, int32_t whence) override;
    /** The position, which may stand past the end after a read. */
    uint32_t tell() const override;
    /** The capacity of the buffer, not what was written. */
    uint32_t size() const override;
    /** A buffer is present. */
    bool isOpen() const override;

    /** Borrows `size` bytes at `buffer` (not freed here); position 0. @return buffer isn't null */
    bool setBuffer(void* buffer, uint32_t size);
    /** Makes a buffer of kChunk bytes, zeroed; position 0. @return false when out of memory */
    bool createBuffer();
    /** The buffer and the position, for whoever takes the written bytes. @return a buffer exists */
    bool getBuffer(void** outBuffer, uint32_t* outPosition) const;
    /** Frees a buffer made here (a borrowed one is only forgotten) and clears pointer and size. */
    void freeBuffer();

private:
    uint8_t* buffer_ = nullptr;
    int64_t bufferSize_ = 0;
    int64_t position_ = 0;
    // A borrowed buffer is never freed or reallocated: growing it copies into new memory.
    bool borrowed_ = false;
};
