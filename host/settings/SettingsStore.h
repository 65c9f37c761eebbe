#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Korvalind3Host
{

/**
 * A store of named values under a path of two names (maker, product), each value a text or an
 * unsigned 32-bit number. It lives in one text file,
 * `$XDG_CONFIG_HOME/<maker>/<product>/settings.conf` (`~/.config/...` when the variable is unset,
 * or `$KV3_CONFIG_DIR/settings.conf` when that is set), one `name = sz:text` or
 * `name = dword:number` line per value.
 *
 * Like the registry it stands in for, nothing stays open: every read parses the file afresh and
 * every write rewrites it whole under a temporary name and renames it into place, so a crash at
 * any moment leaves either the old file or the new one, never a truncated one.
 *
 * A read fails when the file or the value is missing, or when the value is of the other type.
 */
class SettingsStore
{
public:
    /** The store of the program: "Norvane Audio", "Korvalind 3". */
    SettingsStore();
    /** A store at another location; the names become folders. */
    SettingsStore(std::string maker, std::string product);

    /** The folder that holds the file; empty when no folder can be found (no home folder). */
    std::string folder() const;
    /** The full path of the file; empty when there is no folder. */
    std::string filePath() const;

    // [ui thread]
    bool readString(std::string_view name, std::string& value) const;
    // [ui thread]
    bool readNumber(std::string_view name, std::uint32_t& value) const;
    /** @returns false when the folder can't be made or the file can't be written */
    // [ui thread]
    bool writeString(std::string_view name, std::string_view value);
    // [ui thread]
    bool writeNumber(std::string_view name, std::uint32_t value);
    /** Removes a value; true when it is gone afterwards. */
    // [ui thread]
    bool remove(std::string_view name);

    /** Escapes a text for one line of the file: backslash, CR and LF become `\\`, `\r`, `\n`. */
    static std::string escape(std::string_view text);
    /** The inverse of escape; a lone backslash at the end is kept. */
    static std::string unescape(std::string_view text);

private:
    /** The raw "type:value" text of a value, or false. */
    bool readRaw(std::string_view name, std::string& raw) const;
    /** Replaces or appends one line, or removes it when `raw` is null, and rewrites the file. */
    bool writeRaw(std::string_view name, const std::string* raw);

    std::string maker_;
    std::string product_;
};

} // namespace Korvalind3Host
