#pragma once

// Shared by the subcommands that read the interface's resources: the medium named by
// --pack PACK or --folder DIR, and four-character codes given on the command line.

#include "app/kv3/Cli.h"
#include "epi/epiResources.h"

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace kv3cli
{

/**
 * Opens the medium that --pack or --folder names (exactly one of them) in `resources`.
 * @return kOk, or the exit code after the message was printed
 */
inline int openResourceMedium(const Args& args, const std::string& command, epiResources& resources)
{
    const std::optional<std::string> pack = args.value("pack");
    const std::optional<std::string> folder = args.value("folder");
    if (pack.has_value() == folder.has_value())
        return usageError(command, "give either --pack PACK or --folder DIR");
    std::error_code ec;
    if (pack)
    {
        if (!std::filesystem::is_regular_file(*pack, ec))
            return fail("cannot open '" + *pack + "'");
        if (!resources.openPack(epiPath(pack->c_str())))
            return fail("'" + *pack + "' is not a readable resource pack");
        return kOk;
    }
    if (!std::filesystem::is_directory(*folder, ec))
        return fail("cannot open the folder '" + *folder + "'");
    if (!resources.openFolder(epiPath(folder->c_str())))
        return fail("'" + *folder + "' is not a resource folder: it has no epi.frs");
    return kOk;
}

/** A four-character code from one to four bytes of text; shorter codes end in zero bytes. */
inline std::optional<uint32_t> parseCode(const std::string& text)
{
    if (text.empty() || text.size() > 4)
        return std::nullopt;
    return epiText(text).toCode();
}

/** A code as text: its four bytes, with trailing zero bytes left out. */
inline std::string codeText(uint32_t code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text.push_back(char((code >> shift) & 0xFF));
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
    return text;
}

} // namespace kv3cli
