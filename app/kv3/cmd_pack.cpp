// kv3 pack: builds a resource pack from a folder, lists one, and writes one entry to stdout.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "epi/epiResourcePack.h"
#include "tools/packer/PackBuilder.h"

#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

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

int build(const std::string& dirArg, const std::string& outArg)
{
    std::string error;
    if (!PackBuilder::build(dirArg, outArg, error))
        return kv3cli::fail(error);
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
