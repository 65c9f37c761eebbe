// The document model: the pool, the track records, take names.

#include "project/Document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

class TempFolder
{
public:
    TempFolder()
    {
        path_ = fs::temp_directory_path() /
                ("kv3-doc-" + std::to_string(::getpid()) + "-" + std::to_string(counter_++));
        fs::remove_all(path_);
        fs::create_directories(path_);
    }
    ~TempFolder() { fs::remove_all(path_); }
    std::string folder() const { return path_.string() + "/"; }

private:
    fs::path path_;
    static inline int counter_ = 0;
};

void touch(const std::string& file)
{
    std::ofstream(file) << "x";
}

} // namespace

TEST(Document, NewProjectHasFourTracksOfWhichOnlyTheFirstIsArmed)
{
    Document doc;
    ASSERT_EQ(doc.tracks.size(), 4u);
    EXPECT_TRUE(doc.tracks[0]->armed);
    EXPECT_TRUE(doc.tracks[0]->effectEnabled);
    EXPECT_TRUE(doc.tracks[0]->effectLoaded);
    EXPECT_EQ(doc.tracks[0]->input, 0);
    for (size_t i = 1; i < 4; ++i)
    {
        EXPECT_FALSE(doc.tracks[i]->armed) << i;
        EXPECT_FALSE(doc.tracks[i]->effectEnabled) << i;
        EXPECT_FALSE(doc.tracks[i]->effectLoaded) << i;
        EXPECT_EQ(doc.tracks[i]->input, 2) << i;
        EXPECT_EQ(doc.tracks[i]->elementId, -1) << i;
    }
    EXPECT_EQ(doc.name, "Untitled");
    EXPECT_FLOAT_EQ(doc.clickTempo, 120.0f);
}

TEST(Document, ResetKeepsSettingsValuesAndRestoresSessionDefaults)
{
    Document doc;
    doc.addElement("/a.wav");
    doc.tracks[2]->armed = true;
    doc.clickTempo = 90.0f;
    doc.loopEnd = 1234;
    doc.speedRatio = 2.0f;
    doc.sampleRate = 48000;
    doc.inputGain = 12.0f;
    doc.name = "Kept";
    doc.workFolder = "/w/";
    doc.reset();
    EXPECT_TRUE(doc.elements.empty());
    EXPECT_FALSE(doc.tracks[2]->armed);
    EXPECT_TRUE(doc.tracks[0]->armed);
    EXPECT_FLOAT_EQ(doc.clickTempo, 120.0f);
    EXPECT_EQ(doc.loopEnd, 0);
    EXPECT_FLOAT_EQ(doc.speedRatio, 1.0f);
    EXPECT_TRUE(doc.workFolder.empty());
    // These come from the application's settings, not from the defaults.
    EXPECT_EQ(doc.sampleRate, 48000);
    EXPECT_FLOAT_EQ(doc.inputGain, 12.0f);
    EXPECT_EQ(doc.name, "Kept");
}

TEST(Document, PoolIdsAreUniqueAndTheSmallestFreeIsReused)
{
    Document doc;
    const int32_t a = doc.addElement("/s/a.wav");
    EXPECT_EQ(doc.addElement("/s/a.wav"), a);
    EXPECT_EQ(doc.elements.size(), 1u);
    const int32_t b = doc.addElement("/s/b.wav");
    const int32_t c = doc.addElement("/s/c.wav");
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(c, 3);
    EXPECT_TRUE(doc.findElement("/s/b.wav"));
    EXPECT_FALSE(doc.findElement("/s/B.wav"));

    doc.tracks[1]->elementId = b;
    doc.tracks[3]->elementId = b;
    doc.removeElement(doc.elementIndex(b));
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_EQ(doc.tracks[3]->elementId, -1);
    EXPECT_FALSE(doc.findElement("/s/b.wav"));
    EXPECT_EQ(doc.elementIndex(b), -1);

    // The gap is filled first, and the new entry goes to the end of the pool.
    EXPECT_EQ(doc.addElement("/s/d.wav"), 2);
    EXPECT_EQ(doc.elements.back()->id, 2);
    EXPECT_EQ(doc.addElement("/s/e.wav"), 4);

    doc.removeElement(-1);
    doc.removeElement(99);
    EXPECT_EQ(doc.elements.size(), 4u);
}

TEST(Document, UsageTextNamesTheTracksThatHoldAnElement)
{
    Document doc;
    const int32_t id = doc.addElement("/s/a.wav");
    const int32_t other = doc.addElement("/s/b.wav");
    epiText text("stale");
    doc.usageText(doc.elementIndex(id), text);
    EXPECT_EQ(text, "");
    doc.tracks[0]->elementId = id;
    doc.tracks[2]->elementId = id;
    doc.tracks[1]->elementId = other;
    doc.usageText(doc.elementIndex(id), text);
    EXPECT_EQ(text, "T13");
    doc.usageText(doc.elementIndex(other), text);
    EXPECT_EQ(text, "T2");
}

TEST(Document, TrackFileAndClearTrack)
{
    Document doc;
    epiPath file;
    bool recorded = true;
    EXPECT_FALSE(doc.trackFile(0, file, recorded));
    const int32_t id = doc.addElement("/s/a.wav");
    doc.elements[0]->recorded = true;
    doc.tracks[1]->elementId = id;
    ASSERT_TRUE(doc.trackFile(1, file, recorded));
    EXPECT_EQ(file, "/s/a.wav");
    EXPECT_TRUE(recorded);
    EXPECT_EQ(doc.trackElementIndex(1), 0);
    doc.clearTrack(1);
    EXPECT_FALSE(doc.trackFile(1, file, recorded));
    EXPECT_EQ(doc.trackElementIndex(7), -1);
    // An id that names nothing in the pool is no file.
    doc.tracks[2]->elementId = 42;
    EXPECT_FALSE(doc.trackFile(2, file, recorded));
}

TEST(Document, NewTakeFileSkipsNamesOnDisk)
{
    TempFolder dir;
    Document doc;
    doc.workFolder = dir.folder();
    touch(dir.folder() + "Audio_T1_1.aif");
    epiPath take;
    ASSERT_TRUE(doc.newTakeFile(0, take));
    EXPECT_EQ(take, dir.folder() + "Audio_T1_2.aif");
    const int32_t index = doc.trackElementIndex(0);
    ASSERT_GE(index, 0);
    EXPECT_TRUE(doc.elements[static_cast<size_t>(index)]->recorded);
    EXPECT_EQ(static_cast<const std::string&>(*doc.elements[static_cast<size_t>(index)]), take);

    // Track 3 counts its own takes.
    ASSERT_TRUE(doc.newTakeFile(2, take));
    EXPECT_EQ(take, dir.folder() + "Audio_T3_1.aif");
    EXPECT_FALSE(doc.newTakeFile(4, take));
}

TEST(Document, NewTakeFileGivesUpAfterAThousandTakes)
{
    TempFolder dir;
    Document doc;
    doc.workFolder = dir.folder();
    for (int n = 1; n <= 1000; ++n)
    {
        touch(dir.folder() + "Audio_T2_" + std::to_string(n) + ".aif");
    }
    epiPath take("unchanged");
    EXPECT_FALSE(doc.newTakeFile(1, take));
    EXPECT_EQ(take, "unchanged");
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_TRUE(doc.elements.empty());
}
