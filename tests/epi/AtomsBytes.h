#pragma once

// Builds atoms files byte by byte, in either byte order, without the writer under test.

#include <cstdint>
#include <string>
#include <string_view>

namespace atomsbytes
{

class Builder
{
public:
    /** @param bigEndian the order of every integer, tag and size that follows */
    explicit Builder(bool bigEndian) : big_(bigEndian) {}

    /** The 12-byte head with the given words. */
    Builder& head(uint32_t magic = 0x61746D73, uint32_t zero = 0, uint32_t version = 1)
    {
        return word(magic).word(zero).word(version);
    }
    Builder& word(uint32_t w)
    {
        for (int i = 0; i < 4; ++i)
        {
            const int shift = big_ ? 24 - 8 * i : 8 * i;
            bytes_.push_back(char((w >> shift) & 0xFF));
        }
        return *this;
    }
    /** An atom whose header says `size` while `body` is what follows it. */
    Builder& atomSized(uint32_t tag, uint32_t size, std::string_view body)
    {
        word(tag).word(size).word(0);
        bytes_.append(body);
        return *this;
    }
    Builder& atom(uint32_t tag, std::string_view body) { return atomSized(tag, uint32_t(body.size()), body); }
    Builder& u32(uint32_t tag, uint32_t value)
    {
        word(tag).word(4).word(0);
        return word(value);
    }
    Builder& raw(std::string_view bytes)
    {
        bytes_.append(bytes);
        return *this;
    }
    const std::string& bytes() const { return bytes_; }

private:
    bool big_;
    std::string bytes_;
};

} // namespace atomsbytes
