#include "host/settings/SettingsStore.h"

#include "host/settings/ReplaceFile.h"

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace Korvalind3Host
{

namespace
{

constexpr std::string_view kSeparator = " = ";
constexpr std::string_view kStringType = "sz:";
constexpr std::string_view kNumberType = "dword:";

/** Splits the file into lines, dropping a CR before each LF. */
std::vector<std::string> readLines(const std::string& path, bool& found)
{
    std::vector<std::string> lines;
    std::ifstream in(path, std::ios::binary);
    found = static_cast<bool>(in);
    std::string line;
    while (found && std::getline(in, line))
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back();
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

/** The name of a value line, or an empty view for a line that holds none. */
std::string_view lineName(std::string_view line)
{
    const auto at = line.find(kSeparator);
    if (at == std::string_view::npos || at == 0 || line.front() == '#')
    {
        return {};
    }
    return line.substr(0, at);
}

} // namespace

SettingsStore::SettingsStore() : SettingsStore("Norvane Audio", "Korvalind 3") {}

SettingsStore::SettingsStore(std::string maker, std::string product)
    : maker_(std::move(maker)), product_(std::move(product))
{
}

std::string SettingsStore::folder() const
{
    if (const char* dir = std::getenv("KV3_CONFIG_DIR"); dir != nullptr && *dir != '\0')
    {
        return dir;
    }
    std::string base;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && *xdg == '/')
    {
        base = xdg;
    }
    else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
    {
        base = std::string(home) + "/.config";
    }
    else
    {
        return {};
    }
    return base + "/" + maker_ + "/" + product_;
}

std::string SettingsStore::filePath() const
{
    const std::string dir = folder();
    return dir.empty() ? std::string() : dir + "/settings.conf";
}

std::string SettingsStore::escape(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text)
    {
        switch (c)
        {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string SettingsStore::unescape(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '\\' || i + 1 == text.size())
        {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
    }
    return out;
}

bool SettingsStore::readRaw(std::string_view name, std::string& raw) const
{
    const std::string path = filePath();
    if (path.empty() || name.empty())
    {
        return false;
    }
    bool found = false;
    const auto lines = readLines(path, found);
    // The last line of a name wins, as a hand-edited file would expect.
    bool have = false;
    for (const auto& line : lines)
    {
        if (lineName(line) == name)
        {
            raw = line.substr(name.size() + kSeparator.size());
            have = true;
        }
    }
    return have;
}

bool SettingsStore::readString(std::string_view name, std::string& value) const
{
    std::string raw;
    if (!readRaw(name, raw) || raw.rfind(kStringType, 0) != 0)
    {
        return false;
    }
    value = unescape(std::string_view(raw).substr(kStringType.size()));
    return true;
}

bool SettingsStore::readNumber(std::string_view name, std::uint32_t& value) const
{
    std::string raw;
    if (!readRaw(name, raw) || raw.rfind(kNumberType, 0) != 0)
    {
        return false;
    }
    const std::string_view digits = std::string_view(raw).substr(kNumberType.size());
    std::uint32_t parsed = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), parsed);
    if (error != std::errc() || end != digits.data() + digits.size() || digits.empty())
    {
        return false;
    }
    value = parsed;
    return true;
}

bool SettingsStore::writeString(std::string_view name, std::string_view value)
{
    const std::string raw = std::string(kStringType) + escape(value);
    return writeRaw(name, &raw);
}

bool SettingsStore::writeNumber(std::string_view name, std::uint32_t value)
{
    const std::string raw = std::string(kNumberType) + std::to_string(value);
    return writeRaw(name, &raw);
}

bool SettingsStore::remove(std::string_view name)
{
    return writeRaw(name, nullptr);
}

bool SettingsStore::writeRaw(std::string_view name, const std::string* raw)
{
    const std::string dir = folder();
    // A name must fit on its line and be found again by lineName.
    if (dir.empty() || name.empty() || name.find('\n') != std::string_view::npos ||
        name.find('\r') != std::string_view::npos || name.find(kSeparator) != std::string_view::npos ||
        name.front() == '#')
    {
        return false;
    }
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string path = dir + "/settings.conf";

    bool found = false;
    auto lines = readLines(path, found);
    std::string text;
    bool written = false;
    for (const auto& line : lines)
    {
        if (lineName(line) == name)
        {
            if (raw != nullptr && !written)
            {
                text.append(name).append(kSeparator).append(*raw).append("\n");
                written = true;
            }
            continue;
        }
        text.append(line).append("\n");
    }
    if (raw != nullptr && !written)
    {
        text.append(name).append(kSeparator).append(*raw).append("\n");
    }

    return replaceFile(path, text);
}

} // namespace Korvalind3Host
