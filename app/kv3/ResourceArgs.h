#pragma once

// Shared by the subcommands that read the interface's resources: the medium named by
// --pack PACK or --folder DIR, and four-character codes given on the command line.

#include "app/kv3/Cli.h"
#include "epi/epiResources.h"

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

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

/**
 * Parses the options of a resource subcommand: --pack and --folder, the further `valued` options
 * and `flags`. The first word must be one of `actions`, and it must be followed by as many words
 * as its entry in `wordCounts`.
 * @return the exit code when the command ends here (help, or a usage error after its message);
 *         nothing when it goes on
 */
inline std::optional<int>
parseResourceCommand(const std::vector<std::string>& argv, const std::string& command, Args& args,
                     std::vector<std::string> valued, const std::vector<std::string>& flags,
                     const std::vector<std::string>& actions, const std::vector<size_t>& wordCounts)
{
    valued.insert(valued.end(), {"pack", "folder"});
    if (!args.parse(argv, valued, flags))
        return usageError(command, args.error());
    if (args.help())
        return printUsage(commands().at(command));
    std::string list;
    for (const std::string& action : actions)
        list += (list.empty() ? "" : ", ") + action;
    const std::vector<std::string>& words = args.positional();
    if (words.empty())
        return usageError(command, "missing what to do: " + list);
    for (size_t i = 0; i < actions.size(); ++i)
        if (words[0] == actions[i])
        {
            if (words.size() != wordCounts[i] + 1)
                return usageError(command, actions[i] + " takes " + std::to_string(wordCounts[i]) +
                                               (wordCounts[i] == 1 ? " argument" : " arguments"));
            return std::nullopt;
        }
    return usageError(command, "unknown action '" + words[0] + "' (" + list + ")");
}

/**
 * The resource of `kind` that `word` names: a file of that name first; otherwise the file whose
 * own name inside is the code `word`. @return false when there is neither
 */
inline bool findResourceByWord(epiResources& resources, uint32_t kind, const std::string& word, epiText& name)
{
    name = epiText(word);
    epiText probe;
    if (resources.readText(&name, kind, probe))
        return true;
    const std::optional<uint32_t> code = parseCode(word);
    return code && resources.findByInternalName(kind, *code, name);
}

/** `text` on one line: line ends and tabs as \n, \r and \t, and with `quotes` '"' as \". */
inline std::string escapedText(const std::string& text, bool quotes)
{
    std::string out;
    for (char c : text)
    {
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c == '\t')
            out += "\\t";
        else if (c == '"' && quotes)
            out += "\\\"";
        else
            out.push_back(c);
    }
    return out;
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
