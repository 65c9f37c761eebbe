#include "app/kv3/Cli.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace kv3cli
{

namespace
{

std::map<std::string, Command>& registry()
{
    static std::map<std::string, Command> table;
    return table;
}

bool contains(const std::vector<std::string>& list, const std::string& name)
{
    return std::find(list.begin(), list.end(), name) != list.end();
}

} // namespace

bool Args::parse(const std::vector<std::string>& argv, const std::vector<std::string>& valued,
                 const std::vector<std::string>& flags)
{
    bool optionsEnded = false;
    for (std::size_t i = 0; i < argv.size(); ++i)
    {
        const std::string& word = argv[i];
        if (optionsEnded || word.size() < 2 || word[0] != '-' || word == "-")
        {
            positional_.push_back(word);
            continue;
        }
        if (word == "--")
        {
            optionsEnded = true;
            continue;
        }
        if (word == "-h" || word == "--help")
        {
            help_ = true;
            continue;
        }
        if (word.rfind("--", 0) != 0)
        {
            // A lone dash and a digit is a negative number ("--pitch -7" reaches here only as a value).
            if (std::isdigit(static_cast<unsigned char>(word[1])) || word[1] == '.')
            {
                positional_.push_back(word);
                continue;
            }
            error_ = "unknown option '" + word + "'";
            return false;
        }
        std::string name = word.substr(2);
        std::optional<std::string> inlineValue;
        if (auto eq = name.find('='); eq != std::string::npos)
        {
            inlineValue = name.substr(eq + 1);
            name.resize(eq);
        }
        if (contains(flags, name))
        {
            if (inlineValue)
            {
                error_ = "option '--" + name + "' takes no value";
                return false;
            }
            flags_.push_back(name);
        }
        else if (contains(valued, name))
        {
            if (inlineValue)
                values_[name] = *inlineValue;
            else if (i + 1 < argv.size())
                values_[name] = argv[++i];
            else
            {
                error_ = "option '--" + name + "' needs a value";
                return false;
            }
        }
        else
        {
            error_ = "unknown option '--" + name + "'";
            return false;
        }
    }
    return true;
}

bool Args::flag(const std::string& name) const
{
    return contains(flags_, name);
}

std::optional<std::string> Args::value(const std::string& name) const
{
    auto it = values_.find(name);
    if (it == values_.end())
        return std::nullopt;
    return it->second;
}

std::optional<double> parseDouble(std::string_view text)
{
    if (text.empty() || text.size() > 64)
        return std::nullopt;
    std::string copy(text);
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(copy.c_str(), &end);
    if (errno != 0 || end != copy.c_str() + copy.size() || !std::isfinite(v))
        return std::nullopt;
    return v;
}

std::optional<std::int64_t> parseInt(std::string_view text)
{
    std::int64_t v = 0;
    const char* first = text.data();
    const char* last = text.data() + text.size();
    if (first != last && *first == '+')
        ++first;
    auto [ptr, ec] = std::from_chars(first, last, v);
    if (ec != std::errc() || ptr != last || first == last)
        return std::nullopt;
    return v;
}

std::optional<bool> parseOnOff(std::string_view text)
{
    if (text == "on" || text == "yes" || text == "true" || text == "1")
        return true;
    if (text == "off" || text == "no" || text == "false" || text == "0")
        return false;
    return std::nullopt;
}

const std::map<std::string, Command>& commands()
{
    return registry();
}

Register::Register(Command command)
{
    std::string name = command.name;
    registry().emplace(std::move(name), std::move(command));
}

int fail(std::string_view message)
{
    std::cerr << "kv3: " << message << '\n';
    return kFailure;
}

int usageError(std::string_view command, std::string_view message)
{
    std::cerr << "kv3 " << command << ": " << message << " (see 'kv3 " << command << " --help')\n";
    return kUsage;
}

int printUsage(const Command& command)
{
    std::cout << command.usage;
    if (!command.usage.empty() && command.usage.back() != '\n')
        std::cout << '\n';
    return kOk;
}

namespace
{

void printHelp()
{
    std::cout << "Usage: kv3 COMMAND [OPTIONS] [ARGS]\n"
                 "\n"
                 "Korvalind 3 without its window: the practice recorder's engine, files, plug-in\n"
                 "hosting and devices, driven from a terminal.\n"
                 "\n"
                 "Commands:\n";
    std::size_t width = 4;
    for (const auto& [name, command] : registry())
        width = std::max(width, name.size());
    std::cout << "  help" << std::string(width - 4 + 2, ' ')
              << "show this help, or a command's: kv3 help COMMAND\n";
    for (const auto& [name, command] : registry())
        std::cout << "  " << name << std::string(width - name.size() + 2, ' ') << command.summary << '\n';
    std::cout << "\n"
                 "Options for every command: --help shows its usage. kv3 --version prints the version.\n"
                 "Exit status: 0 success, 1 the work failed, 2 bad usage.\n";
}

} // namespace

int runMain(const std::vector<std::string>& argv, std::string_view version)
{
    if (argv.empty())
    {
        printHelp();
        return kUsage;
    }
    const std::string& first = argv[0];
    if (first == "--version" || first == "-V" || first == "version")
    {
        std::cout << "kv3 (Korvalind 3) " << version << '\n';
        return kOk;
    }
    if (first == "help" || first == "--help" || first == "-h")
    {
        if (argv.size() > 1)
        {
            auto it = registry().find(argv[1]);
            if (it == registry().end())
            {
                std::cerr << "kv3: unknown command '" << argv[1] << "' (see 'kv3 help')\n";
                return kUsage;
            }
            return printUsage(it->second);
        }
        printHelp();
        return kOk;
    }
    auto it = registry().find(first);
    if (it == registry().end())
    {
        std::cerr << "kv3: unknown command '" << first << "' (see 'kv3 help')\n";
        return kUsage;
    }
    std::vector<std::string> rest(argv.begin() + 1, argv.end());
    return it->second.run(rest);
}

ProgressBar::ProgressBar(std::string label, bool force)
    : label_(std::move(label)), active_(force || isatty(2) == 1)
{
}

ProgressBar::~ProgressBar()
{
    finish();
}

std::string ProgressBar::render(std::string_view label, double fraction, int width)
{
    fraction = std::clamp(std::isfinite(fraction) ? fraction : 0.0, 0.0, 1.0);
    const int filled = static_cast<int>(std::lround(fraction * width));
    std::string text(label);
    text += " [";
    text.append(static_cast<std::size_t>(filled), '#');
    text.append(static_cast<std::size_t>(width - filled), '-');
    char percent[16];
    std::snprintf(percent, sizeof percent, "] %3d%%", static_cast<int>(std::floor(fraction * 100.0)));
    text += percent;
    return text;
}

void ProgressBar::update(double fraction)
{
    if (!active_ || finished_)
        return;
    const int permille = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 1000.0);
    const auto nowUs = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count();
    if (permille == lastPermille_ || (nowUs - lastDrawUs_ < 50000 && permille < 1000))
        return;
    lastPermille_ = permille;
    lastDrawUs_ = nowUs;
    std::cerr << '\r' << render(label_, fraction) << std::flush;
}

void ProgressBar::finish()
{
    if (!active_ || finished_)
        return;
    finished_ = true;
    std::cerr << '\r' << render(label_, 1.0) << '\n' << std::flush;
}

} // namespace kv3cli
