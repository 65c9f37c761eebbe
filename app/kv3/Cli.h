#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv3cli
{

/** Exit codes shared by every subcommand. */
enum Exit : int
{
    kOk = 0,
    kFailure = 1, ///< the work failed: a file that can't be read, a device that can't open
    kUsage = 2,   ///< the command line itself is wrong
};

/**
 * The words of one subcommand's command line, after the subcommand's name. Options are
 * "--name value" or "--name=value"; flags are "--name" alone. Everything else is positional, in
 * order. "--" ends the options.
 */
class Args
{
public:
    /**
     * Parses argv against the options the subcommand knows.
     * @param valued options that take a value ("container", "rate")
     * @param flags options that stand alone ("json", "loop")
     * @returns false with error() set when an option is unknown or lacks its value
     */
    bool parse(const std::vector<std::string>& argv, const std::vector<std::string>& valued,
               const std::vector<std::string>& flags);

    const std::string& error() const { return error_; }
    const std::vector<std::string>& positional() const { return positional_; }
    bool flag(const std::string& name) const;
    bool has(const std::string& name) const { return values_.count(name) != 0; }
    /** The last value given for an option, or std::nullopt. */
    std::optional<std::string> value(const std::string& name) const;
    /** Whether "--help" or "-h" was given. */
    bool help() const { return help_; }

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::string> values_;
    std::vector<std::string> flags_;
    std::string error_;
    bool help_ = false;
};

/** Strict number parsing for option values: the whole text must be the number. */
std::optional<double> parseDouble(std::string_view text);
std::optional<std::int64_t> parseInt(std::string_view text);
/** "on"/"off" (also "yes"/"no", "true"/"false", "1"/"0"). */
std::optional<bool> parseOnOff(std::string_view text);

/** One subcommand. `run` gets the words after its name and returns an Exit code. */
struct Command
{
    std::string name;
    std::string summary; ///< one line for `kv3 help`
    std::string usage;   ///< full usage text for `kv3 NAME --help`
    std::function<int(const std::vector<std::string>&)> run;
};

/** Every subcommand, in name order. */
const std::map<std::string, Command>& commands();

/** Registers a subcommand at start-up: `static kv3cli::Register reg{{"info", ...}};` */
struct Register
{
    explicit Register(Command command);
};

/** Prints "kv3: MESSAGE" on stderr and returns kFailure. */
int fail(std::string_view message);
/** Prints "kv3 COMMAND: MESSAGE" and a hint to --help on stderr and returns kUsage. */
int usageError(std::string_view command, std::string_view message);
/** Prints the usage of a subcommand on stdout and returns kOk. */
int printUsage(const Command& command);

/** Runs the whole program on argv (without argv[0]). */
int runMain(const std::vector<std::string>& argv, std::string_view version);

/**
 * A progress bar on stderr for long work. It draws only when stderr is a terminal (or when
 * forced, for tests), and at most about 20 times a second.
 */
class ProgressBar
{
public:
    /** @param label shown before the bar; @param force draw even when stderr is not a terminal */
    explicit ProgressBar(std::string label, bool force = false);
    ~ProgressBar();

    /** @param fraction of the work done, 0 to 1 */
    void update(double fraction);
    /** Draws 100% and ends the line; called by the destructor if not before. */
    void finish();
    bool active() const { return active_; }

    /** The text of the bar for a fraction, without the carriage return (for tests). */
    static std::string render(std::string_view label, double fraction, int width = 30);

private:
    std::string label_;
    bool active_;
    bool finished_ = false;
    int lastPermille_ = -1;
    std::int64_t lastDrawUs_ = 0;
};

} // namespace kv3cli
