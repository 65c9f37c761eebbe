// epi_pack_readback PACK COUNT: walks the atoms of PACK, as `kv3 pack build` wrote it, one by one and
// checks that they stand exactly in the pack's layout with COUNT entries. Prints the first
// difference and exits 1. The bytes of the entries are compared by `kv3 pack cat`.

#include "epi/epiAtomsFile.h"
#include "epi/epiResourcePack.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

namespace
{

int failure(const std::string& what)
{
    std::cerr << "epi_pack_readback: " << what << '\n';
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return failure("usage: epi_pack_readback PACK COUNT");
    std::ifstream in(argv[1], std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    const uint32_t files = uint32_t(std::stoul(argv[2]));
    epiRamFile ram;
    ram.setBuffer(bytes.data(), uint32_t(bytes.size()));
    epiAtomsFile atoms;
    if (!atoms.attach(&ram, true) || atoms.swapped())
        return failure("the head is not a little-endian atoms head");
    uint32_t version = 0;
    uint32_t count = 0;
    if (!atoms.readU32(epiResourcePack::kTagVersion, version) || version != 1)
        return failure("no version atom of 1 first");
    if (!atoms.readU32(epiResourcePack::kTagCount, count) || count != files)
        return failure("no count atom of " + std::to_string(files));
    for (uint32_t i = 0; i < count; ++i)
    {
        epiText name;
        uint32_t declared = 0;
        uint32_t size = 0;
        uint32_t position = 0;
        if (!atoms.readText(epiResourcePack::kTagName, name) ||
            !atoms.readU32(epiResourcePack::kTagSize, declared) ||
            !atoms.skipAtom(epiResourcePack::kTagData, size, position) || declared != size)
            return failure("entry " + std::to_string(i) +
                           " lacks one of its three atoms, or its sizes differ");
    }
    uint32_t endValue = 1;
    if (!atoms.readU32(epiResourcePack::kTagEnd, endValue) || endValue != 0)
        return failure("no end atom of 0 after the entries");
    if (ram.tell() != bytes.size())
        return failure("bytes follow the end atom");
    return 0;
}
