// The document model: the pool, the track records, take names.

#include "project/Document.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace
{

void touch(const std::string& file)
{
    std::ofstream(file) << "x";
}

} // namespace

TEST(Document, ResetKeepsTheSettingsValuesAndEmptiesTheSession)
{
    Document doc;
    doc.addElement("/a.wav");
    doc.tracks[2]->armed = true;
    doc.loopEnd = 1234;
    doc.sampleRate = 48000;
    doc.inputGain = 12.0f;
    doc.reset();
    EXPECT_TRUE(doc.elements.empty());
    EXPECT_FALSE(doc.tracks[2]->armed);
    EXPECT_EQ(doc.loopEnd, 0);
    // These come from the application's settings.
    EXPECT_EQ(doc.sampleRate, 48000);
    EXPECT_FLOAT_EQ(doc.inputGain, 12.0f);
}

TEST(Document, PoolIdsAreUniqueAndTheSmallestFreeIsReused)
{
    Document doc;
    const int32_t a = doc.addElement("/s/a.wav");
    EXPECT_EQ(doc.addElement("/s/a.wav"), a);
    const int32_t b = doc.addElement("/s/b.wav");
    doc.addElement("/s/c.wav");
    EXPECT_FALSE(doc.findElement("/s/B.wav"));

    doc.tracks[1]->elementId = b;
    doc.tracks[3]->elementId = b;
    doc.removeElement(doc.elementIndex(b));
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_EQ(doc.tracks[3]->elementId, -1);
    EXPECT_EQ(doc.elementIndex(b), -1);

    // The gap is filled first, and the new entry goes to the end of the pool.
    EXPECT_EQ(doc.addElement("/s/d.wav"), 2);
    EXPECT_EQ(doc.elements.back()->id, 2);
    EXPECT_EQ(doc.addElement("/s/e.wav"), 4);
    EXPECT_EQ(a, 1);
}

TEST(Document, TrackFileAndClearTrack)
{
    Document doc;
    epiPath file;
    bool recorded = false;
    doc.tracks[1]->elementId = doc.addElement("/s/a.wav");
    doc.elements[0]->recorded = true;
    ASSERT_TRUE(doc.trackFile(1, file, recorded));
    EXPECT_EQ(file, "/s/a.wav");
    EXPECT_TRUE(recorded);
    doc.clearTrack(1);
    EXPECT_FALSE(doc.trackFile(1, file, recorded));
    // An id that names nothing in the pool is no file.
    doc.tracks[2]->elementId = 42;
    EXPECT_FALSE(doc.trackFile(2, file, recorded));
}

TEST(Document, NewTakeFileSkipsNamesOnDiskAndGivesUpAfterAThousandTakes)
{
    testsupport::TempFolder dir;
    Document doc;
    doc.workFolder = dir.path() + "/";
    touch(dir.file("Audio_T1_1.aif"));
    epiPath take;
    ASSERT_TRUE(doc.newTakeFile(0, take));
    EXPECT_EQ(take, dir.file("Audio_T1_2.aif"));
    ASSERT_EQ(doc.trackElementIndex(0), 0);
    EXPECT_TRUE(doc.elements[0]->recorded);
    EXPECT_EQ(static_cast<const std::string&>(*doc.elements[0]), take);
    // Track 3 counts its own takes.
    ASSERT_TRUE(doc.newTakeFile(2, take));
    EXPECT_EQ(take, dir.file("Audio_T3_1.aif"));
    EXPECT_FALSE(doc.newTakeFile(4, take));

    for (int n = 1; n <= 1000; ++n)
    {
        touch(dir.file("Audio_T2_" + std::to_string(n) + ".aif"));
    }
    take = "unchanged";
    EXPECT_FALSE(doc.newTakeFile(1, take));
    EXPECT_EQ(take, "unchanged");
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_EQ(doc.elements.size(), 2u);
}
