// The click choice: the resources a choice names, and loading them from a resource pack made of the
// program's own click files.

#include "engine/ClickChoice.h"
#include "engine/Manager.h"
#include "engine/Metronome.h"
#include "epi/epiResourcePack.h"
#include "tests/support/TempFolder.h"
#include "tools/packer/PackBuilder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

std::vector<char> readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

fs::path clicksFolder()
{
    const char* source = std::getenv("KV3_SOURCE_DIR");
    return fs::path(source != nullptr ? source : ".") / "resources" / "clicks";
}

// A pack as the pack tool makes it: every click under "/aux/", except the one left out.
std::string makePack(const testsupport::TempFolder& folder, const std::string& leaveOut)
{
    fs::create_directories(folder.file("clicks/aux"));
    for (const auto& entry : fs::directory_iterator(clicksFolder()))
    {
        if (entry.path().filename() != leaveOut)
        {
            fs::copy_file(entry.path(), folder.file("clicks/aux") / entry.path().filename());
        }
    }
    std::string error;
    EXPECT_TRUE(PackBuilder::build(folder.file("clicks"), folder.file("clicks.pack"), error)) << error;
    return folder.file("clicks.pack");
}

// The first frames of a raw click, as the program converts them.
std::vector<float> rawLeft(const std::string& name, size_t frames)
{
    const std::vector<char> bytes = readFile(clicksFolder() / name);
    std::vector<float> left;
    for (size_t i = 0; i < frames && 4 * i + 1 < bytes.size(); ++i)
    {
        const auto lo = static_cast<uint8_t>(bytes[4 * i]);
        const auto hi = static_cast<uint8_t>(bytes[4 * i + 1]);
        left.push_back(static_cast<float>(static_cast<int16_t>(lo | (hi << 8))) / 32767.0f);
    }
    return left;
}

std::vector<float> heldLeft(const AudioFileLoaded& sample, size_t frames)
{
    return std::vector<float>(sample.buffer().channel[0], sample.buffer().channel[0] + frames);
}

} // namespace

TEST(ClickChoice, AMissingResourceKeepsTheFormerClickAndTheClickComesBackOn)
{
    const testsupport::TempFolder folder;
    const std::string packPath = makePack(folder, "Perc_1_accent_hi.raw");
    epiResourcePack pack;
    ASSERT_TRUE(pack.openFile(epiPath(packPath)));
    Manager manager;
    manager.setFormat(44100, 512);
    Metronome& metronome = manager.metronomeNode();
    ASSERT_EQ(ClickChoice::choose(manager, pack, 1, true, false), 2);
    ASSERT_EQ(metronome.accentSample().frames(), 18228u);

    // With the click on, the strip is muted and the metronome disabled around the change (the waits
    // return after a second with no device), then both are restored.
    metronome.setEnabled(true);
    EXPECT_EQ(ClickChoice::choose(manager, pack, 3, true, true), 1);
    EXPECT_EQ(heldLeft(metronome.accentSample(), 500), rawLeft("Sidestick_accent_hi.raw", 500));
    EXPECT_EQ(metronome.beatSample().frames(), 12936u);
    EXPECT_EQ(heldLeft(metronome.beatSample(), 500), rawLeft("Perc_1_accent_lo.raw", 500));
    EXPECT_TRUE(metronome.isEnabled());
    EXPECT_FALSE(manager.mixerInput(Manager::kMetronomeIndex).isMuted());
    pack.close();
}
