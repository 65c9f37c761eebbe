#include "resources/EmbeddedPack.h"

#include "epi/epiResourcePack.h"
#include "epi/epiResources.h"

#include <cstdio>

namespace
{

struct Range
{
    const void* data = nullptr;
    uint32_t size = 0;
};

Range linked()
{
    Range range;
    char name[16];
    std::snprintf(name, sizeof name, "#%d", int(epiLinkedResources::kProgramPackId));
    epiLinkedResources::find(name, &range.data, &range.size);
    return range;
}

} // namespace

const void* EmbeddedPack::data()
{
    return linked().data;
}

std::uint32_t EmbeddedPack::size()
{
    return linked().size;
}

bool EmbeddedPack::open(epiResourcePack& pack)
{
    const Range range = linked();
    return range.data != nullptr && pack.openMemory(range.data, range.size);
}
