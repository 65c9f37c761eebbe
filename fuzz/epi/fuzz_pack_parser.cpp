// Any bytes opened as a resource pack end in a pack without entries or a pack whose every entry
// lies inside the bytes and loads as exactly those bytes.

#include "epi/epiResourcePack.h"

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1u << 24)
        return 0;
    std::vector<uint8_t> bytes(data, data + size);
    epiResourcePack pack;
    if (!pack.openMemory(bytes.empty() ? nullptr : bytes.data(), uint32_t(size)))
    {
        require(pack.count() == 0 && pack.atoms() == nullptr);
        require(!pack.exists("/layouts/mainPanel.xml"));
        return 0;
    }
    for (int32_t i = 0; i < pack.count(); ++i)
    {
        const epiResourcePack::fileElem* elem = pack.elemAt(i);
        require(elem != nullptr);
        require(size_t(elem->offset()) + elem->entrySize() <= size);
        epiText name;
        require(pack.nameAt(i, &name) && name == *elem);
        const epiResourcePack::fileElem* found = nullptr;
        if (pack.find(name, &found))
        {
            epiText loaded;
            require(pack.loadText(name.cstr(), loaded) || name.find('\0') != std::string::npos);
            if (name.find('\0') == std::string::npos)
            {
                require(loaded.size() == found->entrySize());
                require(loaded.empty() ||
                        std::memcmp(loaded.data(), bytes.data() + found->offset(), loaded.size()) == 0);
            }
        }
        else
        {
            // Only a name without its leading '/' can be missed: find() puts one in front.
            require(!name.startsWith("/"));
        }
    }
    epiText none;
    require(!pack.loadText("/no such entry \x01", none) && none.empty());
    return 0;
}
