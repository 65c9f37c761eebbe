#pragma once

#include <cstdint>

class epiResourcePack;

/** The resource pack linked into the executable: layouts, fonts, images and the click samples. */
namespace EmbeddedPack
{

/** The pack's bytes, as linked under the program's id; null and 0 when no pack is linked. */
const void* data();
std::uint32_t size();

/** Opens the linked pack for reading, without copying it. @return false if it doesn't parse */
bool open(epiResourcePack& pack);

} // namespace EmbeddedPack
