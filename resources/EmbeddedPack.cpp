#include "resources/EmbeddedPack.h"

#include "epi/epiResourcePack.h"

// Placed by EmbeddedPack.S around the pack's bytes.
extern "C" const unsigned char kv3EmbeddedPackBegin[];
extern "C" const unsigned char kv3EmbeddedPackEnd[];

const void* EmbeddedPack::data()
{
    return kv3EmbeddedPackBegin;
}

std::uint32_t EmbeddedPack::size()
{
    return static_cast<std::uint32_t>(kv3EmbeddedPackEnd - kv3EmbeddedPackBegin);
}

bool EmbeddedPack::open(epiResourcePack& pack)
{
    return pack.openMemory(data(), size());
}
