// The document model: the pool, the track records, take names.

#include "project/Document.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

void touch(const std::string& file)
{
    std::ofstream(file) << "x";
}

} // namespace

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
    testsupport::TempFolder dir;
    Document doc;
    doc.workFolder = dir.path() + "/";
    touch(dir.file("Audio_T1_1.aif"));
    epiPath take;
    ASSERT_TRUE(doc.newTakeFile(0, take));
    EXPECT_EQ(take, dir.file("Audio_T1_2.aif"));
    const int32_t index = doc.trackElementIndex(0);
    ASSERT_GE(index, 0);
    EXPECT_TRUE(doc.elements[static_cast<size_t>(index)]->recorded);
    EXPECT_EQ(static_cast<const std::string&>(*doc.elements[static_cast<size_t>(index)]), take);

    // Track 3 counts its own takes.
    ASSERT_TRUE(doc.newTakeFile(2, take));
    EXPECT_EQ(take, dir.file("Audio_T3_1.aif"));
    EXPECT_FALSE(doc.newTakeFile(4, take));
}

TEST(Document, NewTakeFileGivesUpAfterAThousandTakes)
{
    testsupport::TempFolder dir;
    Document doc;
    doc.workFolder = dir.path() + "/";
    for (int n = 1; n <= 1000; ++n)
    {
        touch(dir.file("Audio_T2_" + std::to_string(n) + ".aif"));
    }
    epiPath take("unchanged");
    EXPECT_FALSE(doc.newTakeFile(1, take));
    EXPECT_EQ(take, "unchanged");
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_TRUE(doc.elements.empty());
}
