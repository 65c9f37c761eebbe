// Any bytes read as an atoms file end in true or false: a failed read leaves the position where it
// was, a successful one moves forward, and nothing is read outside the bytes.

#include "epi/epiAtomsFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

uint32_t swap32(uint32_t w)
{
    return (w >> 24) | ((w >> 8) & 0xFF00u) | ((w << 8) & 0xFF0000u) | (w << 24);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1u << 24)
        return 0;
    // A heap copy of exactly the input's size: the memory file needs writable bytes, and any read
    // behind them is caught.
    std::vector<uint8_t> bytes(data, data + size);
    epiRamFile ram;
    ram.setBuffer(bytes.empty() ? nullptr : bytes.data(), uint32_t(size));
    epiAtomsFile atoms;
    if (!atoms.attach(&ram, true))
    {
        require(!ram.isOpen());
        return 0;
    }
    require(ram.tell() == 12);

    for (unsigned step = 0;; ++step)
    {
        const uint32_t at = ram.tell();
        require(at <= size);
        uint32_t tag = 0;
        if (size_t(at) + 4 <= size)
        {
            std::memcpy(&tag, bytes.data() + at, 4);
            if (atoms.swapped())
                tag = swap32(tag);
        }
        // Another tag never matches and never moves the stream.
        uint32_t value = 1;
        require(!atoms.readU32(tag ^ 0x20202020u, value) && value == 0);
        require(ram.tell() == at);
        uint32_t peeked = 0;
        const bool header = atoms.peekSize(tag, peeked);
        require(ram.tell() == at);
        require(header == (size_t(at) + 12 <= size));

        bool ok = false;
        switch (step % 5)
        {
        case 0:
            ok = atoms.readU32(tag, value);
            break;
        case 1:
        {
            uint8_t byte = 0;
            ok = atoms.readByte(tag, byte);
            break;
        }
        case 2:
        {
            epiText text;
            ok = atoms.readText(tag, text);
            require(!ok || text.size() == peeked);
            break;
        }
        case 3:
        {
            uint8_t buffer[7];
            ok = atoms.readAtom(tag, buffer, sizeof buffer);
            break;
        }
        default:
        {
            uint32_t bodySize = 0;
            uint32_t position = 0;
            ok = atoms.skipAtom(tag, bodySize, position);
            require(!ok || (position == at + 12 && size_t(position) + bodySize <= size));
            break;
        }
        }
        if (!ok)
        {
            require(ram.tell() == at);
            break;
        }
        require(ram.tell() == at + 12 + peeked);
    }
    return 0;
}
