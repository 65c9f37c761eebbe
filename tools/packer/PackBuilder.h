#pragma once

#include <filesystem>
#include <string>

/**
 * Writes a resource pack from a folder: every regular file under the folder becomes one entry,
 * named by its path below the folder with a leading '/' ("/layouts/mainPanel.xml"), in
 * case-insensitive name order, in the atoms format `epiResourcePack` reads. The pack is written
 * under a temporary name beside `out` and renamed when complete, so a failed build leaves no file.
 * Used by the build to make the program's own pack and by `kv3 pack build`.
 */
namespace PackBuilder
{

/**
 * @param error set to one line naming the file at fault when the build fails
 * @return whether `out` now holds the whole pack
 */
bool build(const std::filesystem::path& dir, const std::filesystem::path& out, std::string& error);

/** Whether `a` comes before `b` in a pack: ASCII letters fold, other bytes compare as they are, and
    names that differ only in case keep a fixed order by their bytes. */
bool nameBefore(const std::string& a, const std::string& b);

} // namespace PackBuilder
