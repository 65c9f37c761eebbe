#pragma once

// Builds project files byte by byte, independently of the atoms writer, so that the tests can state
// what a file must hold and hand the reader damaged or old files.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace projecttest
{

inline uint32_t tagOf(const char (&text)[5])
{
    return (static_cast<uint32_t>(static_cast<uint8_t>(text[0])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 8) |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3]));
}

/** A little-endian atoms file, atom by atom. */
class FileBytes
{
public:
    FileBytes()
    {
        word(tagOf("atms"));
        word(0);
        word(1);
    }

    FileBytes& i32(const char (&tag)[5], int32_t value) { return raw(tag, le(static_cast<uint32_t>(value))); }
    FileBytes& f32(const char (&tag)[5], float value)
    {
        uint32_t bits = 0;
        std::memcpy(&bits, &value, 4);
        return raw(tag, le(bits));
    }
    FileBytes& byte(const char (&tag)[5], uint8_t value) { return raw(tag, {value}); }
    FileBytes& text(const char (&tag)[5], const std::string& value)
    {
        return raw(tag, {value.begin(), value.end()});
    }
    /** An effect state as the dump writes it: 'size' then 'data'. */
    FileBytes& dump(const std::vector<uint8_t>& state)
    {
        return i32("size", static_cast<int32_t>(state.size())).raw("data", state);
    }

    const std::vector<uint8_t>& bytes() const { return bytes_; }

    bool writeTo(const std::string& path) const
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
        return static_cast<bool>(out);
    }

private:
    static std::vector<uint8_t> le(uint32_t value)
    {
        return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
    }
    void word(uint32_t value)
    {
        const std::vector<uint8_t> bytes = le(value);
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }
    /** An atom: tag, size, a zero word, then the payload. */
    FileBytes& raw(const char (&tag)[5], const std::vector<uint8_t>& payload)
    {
        word(tagOf(tag));
        word(static_cast<uint32_t>(payload.size()));
        word(0);
        bytes_.insert(bytes_.end(), payload.begin(), payload.end());
        return *this;
    }

    std::vector<uint8_t> bytes_;
};

/** One track's atoms with the values of a new project's second track. */
inline void plainTrack(FileBytes& f, int32_t elementId)
{
    f.i32("elid", elementId)
        .f32("volu", 0.0f)
        .f32("pann", 0.0f)
        .f32("temp", 1.0f)
        .f32("pich", 0.0f)
        .i32("inps", 2)
        .byte("fxen", 0)
        .byte("fxlo", 0)
        .byte("solo", 0)
        .byte("mute", 0)
        .byte("rarm", 0)
        .byte("froz", 0)
        .text("frpa", "")
        .dump({});
}

/** The session atoms from 'wdir' up to and including 'mate'. */
inline void sessionUpToRatio(FileBytes& f, const std::string& rootFolder, float tempo)
{
    f.text("wdir", rootFolder + "takes/")
        .text("exfn", "")
        .i32("masv", 870)
        .byte("ckEn", 0)
        .f32("meTe", tempo)
        .i32("meSn", 4)
        .i32("meSd", 4)
        .i32("mevo", 100)
        .byte("telk", 1)
        .text("rpat", rootFolder)
        .i32("sara", 44100)
        .byte("loen", 0)
        .i32("lost", 0)
        .i32("loso", 0)
        .f32("mate", 1.0f);
}

inline std::vector<uint8_t> readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

} // namespace projecttest
