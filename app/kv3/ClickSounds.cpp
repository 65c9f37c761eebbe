// The click sounds of the resources folder, read for the commands that put the metronome in the mix.

#include "app/kv3/ClickSounds.h"

#include "engine/AudioData.h"
#include "engine/Metronome.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

namespace kv3cli
{
namespace
{

bool loadClickFile(Metronome& metronome, bool accent, const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof())
        return false;
    if (bytes.size() < 4)
        return false;
    // Headerless 16-bit little-endian stereo, four bytes a frame.
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                          (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
    AudioBuffer buffer;
    buffer.fillFromInt16(samples.data(), static_cast<int64_t>(bytes.size() / 4));
    metronome.loadClick(accent, buffer);
    return true;
}

} // namespace

fs::path resourceFolder()
{
    if (const char* env = std::getenv("KV3_RESOURCES"); env != nullptr && *env != '\0')
        return env;
    std::error_code error;
    fs::path at = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (int up = 0; up < 6 && !at.empty(); ++up)
    {
        if (fs::is_directory(at / "resources" / "clicks", error))
            return at / "resources";
        if (at == at.parent_path())
            break;
        at = at.parent_path();
    }
    return {};
}

bool loadClickSounds(Metronome& metronome, std::string& searched)
{
    const fs::path clicks = resourceFolder() / "clicks";
    searched = clicks.string();
    return loadClickFile(metronome, true, clicks / "Classic_accent_hi.raw") &&
           loadClickFile(metronome, false, clicks / "Classic_accent_lo.raw");
}

} // namespace kv3cli
