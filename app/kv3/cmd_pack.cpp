// kv3 pack: builds a resource pack from a folder, lists one, and writes one entry to stdout.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "epi/epiAtomsFile.h"
#include "epi/epiResourcePack.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

const char* const kUsage =
    "Usage: kv3 pack build DIR OUT\n"
    "       kv3 pack list [--json] PACK\n"
    "       kv3 pack cat PACK NAME\n"
    "\n"
    "build  packs every file under DIR into the resource pack OUT. Each entry is named\n"
    "       by its path below DIR with a leading '/', as in /layouts/mainPanel.xml;\n"
    "       entries are stored in case-insensitive name order.\n"
    "list   prints each entry of PACK in file order: its size in bytes, a tab, its name.\n"
    "       --json prints {\"path\", \"entries\": [{\"name\", \"size\", \"offset\"}]}.\n"
    "cat    writes the bytes of the entry NAME to stdout (the leading '/' may be left out).\n";

struct Source
{
    std::string name; // "/folder/file", as stored
    fs::path file;
};

// ASCII letters fold, every other byte compares as it is; names that differ only in case keep
// a fixed order by their bytes, so a build is the same on every run.
bool nameBefore(const std::string& a, const std::string& b)
{
    auto fold = [](unsigned char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : char(c); };
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i)
    {
        const unsigned char x = (unsigned char)fold((unsigned char)a[i]);
        const unsigned char y = (unsigned char)fold((unsigned char)b[i]);
        if (x != y)
            return x < y;
    }
    if (a.size() != b.size())
        return a.size() < b.size();
    return a < b;
}

bool readFile(const fs::path& path, std::string& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// Removes the temporary output unless the build completed.
class TempOutput
{
public:
    explicit TempOutput(fs::path path) : path_(std::move(path)) {}
    ~TempOutput()
    {
        if (!kept_)
        {
            std::error_code ec;
            fs::remove(path_, ec);
        }
    }
    TempOutput(const TempOutput&) = delete;
    TempOutput& operator=(const TempOutput&) = delete;
    const fs::path& path() const { return path_; }
    void keep() { kept_ = true; }

private:
    fs::path path_;
    bool kept_ = false;
};

int build(const std::string& dirArg, const std::string& outArg)
{
    std::error_code ec;
    const fs::path dir(dirArg);
    if (!fs::is_directory(dir, ec))
        return kv3cli::fail("'" + dirArg + "' is not a folder");
    const fs::path out(outArg);
    if (fs::is_directory(out, ec))
        return kv3cli::fail("'" + outArg + "' is a folder, not a pack file");

    std::vector<Source> sources;
    fs::recursive_directory_iterator it(dir, ec);
    if (ec)
        return kv3cli::fail("cannot list '" + dirArg + "': " + ec.message());
    for (const fs::recursive_directory_iterator end; it != end; it.increment(ec))
    {
        if (ec)
            return kv3cli::fail("cannot list '" + dirArg + "': " + ec.message());
        if (!it->is_regular_file(ec))
            continue;
        // A pack written into the folder that it packs must not end up inside itself.
        if (fs::exists(out, ec) && fs::equivalent(it->path(), out, ec))
            continue;
        const std::string relative = it->path().lexically_relative(dir).generic_string();
        sources.push_back({"/" + relative, it->path()});
    }
    if (ec)
        return kv3cli::fail("cannot list '" + dirArg + "': " + ec.message());
    std::sort(sources.begin(), sources.end(),
              [](const Source& a, const Source& b) { return nameBefore(a.name, b.name); });

    // Offsets and sizes are 32-bit, and the reader seeks with a signed 32-bit position.
    constexpr uint64_t kLimit = uint64_t(std::numeric_limits<int32_t>::max());
    constexpr uint64_t kHeader = epiAtomsFile::kHeaderSize;
    uint64_t total = epiAtomsFile::kHeadSize + 3 * (kHeader + 4);
    for (const Source& s : sources)
    {
        const uint64_t size = fs::file_size(s.file, ec);
        if (ec)
            return kv3cli::fail("cannot read '" + s.file.string() + "': " + ec.message());
        total += 3 * kHeader + s.name.size() + 4 + size;
    }
    if (total > kLimit)
        return kv3cli::fail("'" + dirArg + "' holds too much for one pack (" + std::to_string(total) +
                            " bytes, at most " + std::to_string(kLimit) + ")");

    TempOutput temp(out.string() + ".part-" + std::to_string(::getpid()));
    const std::string outError = "cannot write '" + outArg + "'";
    epiAtomsFile atoms;
    if (!atoms.open(epiPath(temp.path().string()), epiFile::kWrite | epiFile::kDeleteFirst))
        return kv3cli::fail(outError);
    bool ok = atoms.writeU32(epiResourcePack::kTagVersion, epiResourcePack::kPackVersion) &&
              atoms.writeU32(epiResourcePack::kTagCount, uint32_t(sources.size()));
    std::string bytes;
    for (const Source& s : sources)
    {
        if (!ok)
            break;
        if (!readFile(s.file, bytes))
            return kv3cli::fail("cannot read '" + s.file.string() + "'");
        const epiText name(s.name);
        ok = atoms.writeText(epiResourcePack::kTagName, &name) &&
             atoms.writeU32(epiResourcePack::kTagSize, uint32_t(bytes.size())) &&
             atoms.writeAtom(epiResourcePack::kTagData, bytes.data(), uint32_t(bytes.size()));
    }
    ok = ok && atoms.writeU32(epiResourcePack::kTagEnd, 0);
    // The file is cut at the position on close: the position stands at the end here.
    ok = atoms.close() && ok;
    if (!ok)
        return kv3cli::fail(outError);
    fs::rename(temp.path(), out, ec);
    if (ec)
        return kv3cli::fail(outError + ": " + ec.message());
    temp.keep();
    return kv3cli::kOk;
}

bool openPack(epiResourcePack& pack, const std::string& path, int& exitCode)
{
    std::error_code ec;
    if (!fs::is_regular_file(path, ec))
    {
        exitCode = kv3cli::fail("cannot open '" + path + "'");
        return false;
    }
    if (!pack.openFile(epiPath(path)))
    {
        exitCode = kv3cli::fail("'" + path + "' is not a readable resource pack");
        return false;
    }
    return true;
}

int list(const std::string& path, bool json)
{
    epiResourcePack pack;
    int exitCode = kv3cli::kOk;
    if (!openPack(pack, path, exitCode))
        return exitCode;
    if (json)
    {
        kv3cli::JsonWriter w;
        w.beginObject().key("path").value(path).key("entries").beginArray();
        for (int32_t i = 0; i < pack.count(); ++i)
        {
            const epiResourcePack::fileElem* e = pack.elemAt(i);
            w.beginObject().key("name").value(std::string_view(*e));
            w.key("size").value(std::int64_t(e->entrySize())).key("offset").value(std::int64_t(e->offset()));
            w.endObject();
        }
        w.endArray().endObject();
        std::cout << w.str() << '\n';
        return kv3cli::kOk;
    }
    for (int32_t i = 0; i < pack.count(); ++i)
    {
        const epiResourcePack::fileElem* e = pack.elemAt(i);
        std::cout << e->entrySize() << '\t' << std::string_view(*e) << '\n';
    }
    return kv3cli::kOk;
}

int cat(const std::string& path, const std::string& name)
{
    epiResourcePack pack;
    int exitCode = kv3cli::kOk;
    if (!openPack(pack, path, exitCode))
        return exitCode;
    if (!pack.find(epiText(name), nullptr))
        return kv3cli::fail("no entry '" + name + "' in '" + path + "'");
    epiText bytes;
    if (!pack.loadText(name.c_str(), bytes))
        return kv3cli::fail("cannot read the entry '" + name + "' of '" + path + "'");
    std::cout.write(bytes.data(), std::streamsize(bytes.size()));
    std::cout.flush();
    if (!std::cout)
        return kv3cli::fail("cannot write the entry '" + name + "' to stdout");
    return kv3cli::kOk;
}

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (!args.parse(argv, {}, {"json"}))
        return kv3cli::usageError("pack", args.error());
    if (args.help())
        return kv3cli::printUsage(kv3cli::commands().at("pack"));
    const std::vector<std::string>& words = args.positional();
    if (words.empty())
        return kv3cli::usageError("pack", "missing what to do: build, list or cat");
    const std::string& action = words[0];
    if (args.flag("json") && action != "list")
        return kv3cli::usageError("pack", "--json goes with 'list' only");
    if (action == "build")
    {
        if (words.size() != 3)
            return kv3cli::usageError("pack", "build takes a folder and an output file");
        return build(words[1], words[2]);
    }
    if (action == "list")
    {
        if (words.size() != 2)
            return kv3cli::usageError("pack", "list takes one pack file");
        return list(words[1], args.flag("json"));
    }
    if (action == "cat")
    {
        if (words.size() != 3)
            return kv3cli::usageError("pack", "cat takes a pack file and an entry name");
        return cat(words[1], words[2]);
    }
    return kv3cli::usageError("pack", "unknown action '" + action + "' (build, list or cat)");
}

kv3cli::Register reg{kv3cli::Command{"pack", "build, list and read resource packs", kUsage, run}};

} // namespace
