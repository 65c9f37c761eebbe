// kv3 resources find: finds a resource by the code inside it, as the program finds its layouts
// and menus.

#include "app/kv3/Cli.h"
#include "app/kv3/ResourceArgs.h"
#include "epi/epiResources.h"

#include <iostream>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 resources find (--pack PACK | --folder DIR) KIND CODE\n"
    "\n"
    "find  looks through the resources of KIND (a four-character code: laya for layouts,\n"
    "      menu for menus, ...) for the XML file whose <epi><content><name> is CODE, and\n"
    "      prints its path in the pack or folder, as in layouts/mainPanel.xml. Codes of\n"
    "      fewer than four characters end in zero bytes; quote a code with a blank ('Bar ').\n"
    "      Exit 1 when no resource has that code.\n";

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (const std::optional<int> done =
            kv3cli::parseResourceCommand(argv, "resources", args, {}, {}, {"find"}, {2}))
        return *done;
    const std::vector<std::string>& words = args.positional();
    const std::optional<uint32_t> kind = kv3cli::parseCode(words[1]);
    const std::optional<uint32_t> code = kv3cli::parseCode(words[2]);
    if (!kind)
        return kv3cli::usageError("resources",
                                  "the kind '" + words[1] + "' is not a code of 1 to 4 characters");
    if (!code)
        return kv3cli::usageError("resources",
                                  "the code '" + words[2] + "' is not a code of 1 to 4 characters");

    epiResources resources;
    if (const int status = kv3cli::openResourceMedium(args, "resources", resources); status != kv3cli::kOk)
        return status;
    epiText name;
    if (!resources.findByInternalName(*kind, *code, name))
        return kv3cli::fail("no resource of kind '" + words[1] + "' is named '" + words[2] + "'");
    epiText path;
    epiResources::resolve(&name, *kind, path);
    std::cout << std::string_view(path) << '\n';
    return kv3cli::kOk;
}

kv3cli::Register reg{
    kv3cli::Command{"resources", "find the interface's resources by their codes", kUsage, run}};

} // namespace
