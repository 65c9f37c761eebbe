#pragma once

#include "epi/epiFile.h"
#include "epi/epiObject.h"
#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>

/**
 * The framework's tagged binary container: a 12-byte head, then a flat run of atoms, each a
 * 12-byte header (tag, body size, a reserved 0) and the body. There is no directory and no
 * nesting: readers ask for atoms by tag in the order in which they were written, and an atom that
 * a reader doesn't ask for blocks all that follow it.
 *
 * Integers and tags are stored in the writer's byte order (little-endian for everything this
 * program writes). A reader takes the order from the head: when it differs from the machine's,
 * `swapped` is set and the tag and size of every header, and the value of every 32-bit integer
 * atom, are swapped on read and write. Texts and byte bodies are never swapped.
 *
 * The stream is any epiFile, on disk or in memory. One stream position is shared by every
 * operation and nothing is locked: an atoms file belongs to one thread at a time.
 */
class epiAtomsFile : public epiObject
{
public:
    /** The first word of the head: the bytes "smta" in a little-endian file. */
    static constexpr uint32_t kMagic = epiCode("atms");
    /** The format version, the head's third word. */
    static constexpr uint32_t kFormatVersion = 1;
    /** Bytes of the head, and of each atom's header. */
    static constexpr uint32_t kHeadSize = 12;
    static constexpr uint32_t kHeaderSize = 12;

    epiAtomsFile() = default;
    epiAtomsFile(const epiAtomsFile&) = delete;
    epiAtomsFile& operator=(const epiAtomsFile&) = delete;
    /** Closes and deletes the stream when it was created here; a lent stream is left as it is. */
    ~epiAtomsFile() override;

    /**
     * Takes `file` as the stream (null keeps the present one; a file that was created here is
     * deleted when replaced) and reads or writes the head at the stream's position.
     * Reading fails when the head can't be read, its magic matches in neither byte order, or its
     * second word isn't 0 or third isn't 1. On any failure the stream is closed.
     */
    virtual bool attach(epiFile* file, bool forRead);

    /**
     * Opens `path` with epiFile's flags (bit 0 read, bit 1 write, ...) on a disk file created here
     * when none is set, then attach()es it, reading when bit 0 is set.
     * @return false when a stream is already open, the file won't open, or attach() fails
     */
    virtual bool open(const epiPath& path, int32_t flags, int32_t a = 0, int32_t b = 0);

    /** Closes the stream, if any, without deleting it. */
    virtual bool close();

    /** Writes an atom of `size` bytes at the present position: header, then body. */
    bool writeAtom(uint32_t tag, const void* data, uint32_t size);
    /** A 4-byte atom holding `value`, swapped when `swapped` is set. */
    bool writeU32(uint32_t tag, uint32_t value);
    /** writeU32() of the word at `value`: the form used for a float held as its raw bits. */
    bool writeU32Ref(uint32_t tag, const uint32_t* value);
    /** writeU32() of a float's raw bits. */
    bool writeU32Ref(uint32_t tag, const float* value);
    /** A 1-byte atom. */
    bool writeByte(uint32_t tag, uint8_t value);
    /** An atom holding the text's bytes, without a terminator. A null text writes nothing: false. */
    bool writeText(uint32_t tag, const epiText* text);

    /**
     * Reads the atom at the present position when its tag is `tag`: `size` bytes of the body into
     * `target`. A longer body is cut to `size` and the rest skipped; a shorter body is read whole
     * and the rest of `target` zeroed.
     * @return true with the stream behind the atom. On false (wrong tag, a header or body that
     *         isn't all there) the stream stays where it was, so another tag can be tried at the
     *         same place, and `target` is zeroed when clearOnFail() is set.
     */
    bool readAtom(uint32_t tag, void* target, uint32_t size);
    /** readAtom() of 4 bytes, swapped when `swapped` is set; 0 on failure with clearOnFail(). */
    bool readU32(uint32_t tag, uint32_t& value);
    /** The same for a signed integer. */
    bool readU32(uint32_t tag, int32_t& value);
    /** The same for a float held as its raw bits. */
    bool readU32(uint32_t tag, float& value);
    /** readAtom() of 1 byte. */
    bool readByte(uint32_t tag, uint8_t& value);
    /**
     * Reads a whole atom into `dest`, which gets the body's length. On failure `dest` is cleared
     * when clearOnFail() is set.
     */
    bool readText(uint32_t tag, epiText& dest);

    /**
     * Reads the header at the present position and goes back to it.
     * @param size the body size when the tag is `tag`, otherwise 0
     * @return whether a header could be read, true even for another tag
     */
    bool peekSize(uint32_t tag, uint32_t& size);

    /**
     * Steps over the atom at the present position when its tag is `tag`.
     * @param size receives the body size (0 on failure)
     * @param position receives the offset of the body in the stream (0 on failure)
     * @return true with the stream behind the atom; false, with the stream where it was, for
     *         another tag, a missing header, or a body that runs past the end of the stream
     */
    bool skipAtom(uint32_t tag, uint32_t& size, uint32_t& position);

    /** The stream, null when none was set. */
    epiFile* fileOf() const { return file_; }
    /** The path given to open(), empty after attach() alone. */
    const epiPath& path() const { return path_; }
    /** The file's byte order differs from the machine's. */
    bool swapped() const { return swapped_; }
    /** Whether a failed read zeroes its target (the default). */
    bool clearOnFail() const { return clearOnFail_; }
    void setClearOnFail(bool clear) { clearOnFail_ = clear; }

private:
    struct Header
    {
        uint32_t tag;
        uint32_t size;
    };

    bool readHeader(Header& header);
    bool writeWords(const uint32_t* words, int32_t count);
    bool readBytes(void* target, uint64_t length);
    bool writeBytes(const void* source, uint64_t length);
    bool seekTo(uint64_t position);
    /** The stream's length: nothing of an atom can lie beyond it. */
    uint64_t streamSize() const;
    uint32_t order(uint32_t word) const;
    void dropFile();

    epiFile* file_ = nullptr;
    epiPath path_;
    bool ownsFile_ = false;
    bool clearOnFail_ = true;
    bool swapped_ = false;
};
