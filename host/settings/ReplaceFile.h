#pragma once

#include <string>

namespace Korvalind3Host
{

/**
 * Writes `bytes` as the whole of the file at `path`: beside it under a temporary name first, made
 * durable, then renamed over it. A reader, or a crash at any moment, sees the whole old file or the
 * whole new one, never a part. The platform's file calls stand behind it.
 * @returns false, leaving the old file as it was, when anything fails
 */
bool replaceFile(const std::string& path, const std::string& bytes);

} // namespace Korvalind3Host
