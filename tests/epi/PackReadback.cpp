// epi_pack_readback PACK DIR: checks that PACK, as `kv3 pack build DIR PACK` wrote it, holds every
// file under DIR byte for byte when read through epiResourcePack, and
// that its atoms stand exactly in the pack's layout. Prints the first difference and exits 1.
// epi_pack_readback cut IN N OUT: writes the first N bytes of IN to OUT, a damaged pack.

#include "epi/epiAtomsFile.h"
#include "epi/epiResourcePack.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>

namespace
{

namespace fs = std::filesystem;

std::string readWhole(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

int failure(const std::string& what)
{
    std::cerr << "epi_pack_readback: " << what << '\n';
    return 1;
}

// Reads every entry of `pack` by name and compares it with the folder's file.
int compareEntries(epiResourcePack& pack, const std::map<std::string, std::string>& files, const char* how)
{
    const std::string from = std::string(" (") + how + ")";
    if (pack.count() != int32_t(files.size()))
        return failure("the pack has " + std::to_string(pack.count()) + " entries, the folder " +
                       std::to_string(files.size()) + " files" + from);
    for (const auto& [name, bytes] : files)
    {
        epiText loaded;
        if (!pack.loadText(name.c_str(), loaded))
            return failure("no entry " + name + from);
        if (std::string(loaded) != bytes)
            return failure("entry " + name + " differs from its file" + from);
    }
    return 0;
}

// Walks the atoms of the pack one by one: the exact layout, nothing left over.
int checkLayout(const std::string& bytes, const std::map<std::string, std::string>& files)
{
    std::string copy(bytes);
    epiRamFile ram;
    ram.setBuffer(copy.data(), uint32_t(copy.size()));
    epiAtomsFile atoms;
    if (!atoms.attach(&ram, true) || atoms.swapped())
        return failure("the head is not a little-endian atoms head");
    uint32_t version = 0;
    uint32_t count = 0;
    if (!atoms.readU32(epiResourcePack::kTagVersion, version) || version != 1)
        return failure("no version atom of 1 first");
    if (!atoms.readU32(epiResourcePack::kTagCount, count) || count != files.size())
        return failure("no count atom of " + std::to_string(files.size()));
    for (uint32_t i = 0; i < count; ++i)
    {
        epiText name;
        uint32_t declared = 0;
        uint32_t size = 0;
        uint32_t position = 0;
        if (!atoms.readText(epiResourcePack::kTagName, name) ||
            !atoms.readU32(epiResourcePack::kTagSize, declared) ||
            !atoms.skipAtom(epiResourcePack::kTagData, size, position))
            return failure("entry " + std::to_string(i) + " lacks one of its three atoms");
        if (declared != size)
            return failure("entry " + std::string(name) + ": size atom " + std::to_string(declared) +
                           ", data atom " + std::to_string(size));
    }
    uint32_t endValue = 1;
    if (!atoms.readU32(epiResourcePack::kTagEnd, endValue) || endValue != 0)
        return failure("no end atom of 0 after the entries");
    if (ram.tell() != copy.size())
        return failure("bytes follow the end atom");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 5 && std::string(argv[1]) == "cut")
    {
        const std::string bytes = readWhole(argv[2]);
        const size_t n = std::min(bytes.size(), size_t(std::stoul(argv[3])));
        std::ofstream out(argv[4], std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), std::streamsize(n));
        return out ? 0 : failure(std::string("cannot write ") + argv[4]);
    }
    if (argc != 3)
        return failure("usage: epi_pack_readback PACK DIR");
    const fs::path pack(argv[1]);
    const fs::path dir(argv[2]);
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
    {
        if (entry.is_regular_file())
            files["/" + entry.path().lexically_relative(dir).generic_string()] = readWhole(entry.path());
    }
    if (files.empty())
        return failure("no files under " + dir.string());

    epiResourcePack fromDisk;
    if (!fromDisk.openFile(epiPath(pack.string())))
        return failure("cannot open " + pack.string() + " as a pack");
    if (int rc = compareEntries(fromDisk, files, "from disk"))
        return rc;

    const std::string bytes = readWhole(pack);
    if (int rc = checkLayout(bytes, files))
        return rc;
    std::cout << "epi_pack_readback: " << files.size() << " entries match\n";
    return 0;
}
