// The document model and the project file: the pool, take names, the file's exact layout, saving
// and loading back, old and damaged files, moved folders.

#include "project/Document.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

// Project files built byte by byte, independently of the atoms writer, so that the tests can state
// what a file must hold and hand the reader damaged or old files.
inline uint32_t tagOf(const char (&text)[5])
{
    return (static_cast<uint32_t>(static_cast<uint8_t>(text[0])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 8) |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3]));
}

/** A little-endian atoms file, atom by atom. */
class FileBytes
{
public:
    FileBytes()
    {
        word(tagOf("atms"));
        word(0);
        word(1);
    }

    FileBytes& i32(const char (&tag)[5], int32_t value) { return raw(tag, le(static_cast<uint32_t>(value))); }
    FileBytes& f32(const char (&tag)[5], float value)
    {
        uint32_t bits = 0;
        std::memcpy(&bits, &value, 4);
        return raw(tag, le(bits));
    }
    FileBytes& byte(const char (&tag)[5], uint8_t value) { return raw(tag, {value}); }
    FileBytes& text(const char (&tag)[5], const std::string& value)
    {
        return raw(tag, {value.begin(), value.end()});
    }
    /** An effect state as the dump writes it: 'size' then 'data'. */
    FileBytes& dump(const std::vector<uint8_t>& state)
    {
        return i32("size", static_cast<int32_t>(state.size())).raw("data", state);
    }

    const std::vector<uint8_t>& bytes() const { return bytes_; }

    bool writeTo(const std::string& path) const
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
        return static_cast<bool>(out);
    }

private:
    static std::vector<uint8_t> le(uint32_t value)
    {
        return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
    }
    void word(uint32_t value)
    {
        const std::vector<uint8_t> bytes = le(value);
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }
    /** An atom: tag, size, a zero word, then the payload. */
    FileBytes& raw(const char (&tag)[5], const std::vector<uint8_t>& payload)
    {
        word(tagOf(tag));
        word(static_cast<uint32_t>(payload.size()));
        word(0);
        bytes_.insert(bytes_.end(), payload.begin(), payload.end());
        return *this;
    }

    std::vector<uint8_t> bytes_;
};

/** One track's atoms with the values of a new project's second track. */
inline void plainTrack(FileBytes& f, int32_t elementId)
{
    f.i32("elid", elementId)
        .f32("volu", 0.0f)
        .f32("pann", 0.0f)
        .f32("temp", 1.0f)
        .f32("pich", 0.0f)
        .i32("inps", 2)
        .byte("fxen", 0)
        .byte("fxlo", 0)
        .byte("solo", 0)
        .byte("mute", 0)
        .byte("rarm", 0)
        .byte("froz", 0)
        .text("frpa", "")
        .dump({});
}

/** The session atoms from 'wdir' up to and including 'mate'. */
inline void sessionUpToRatio(FileBytes& f, const std::string& rootFolder, float tempo)
{
    f.text("wdir", rootFolder + "takes/")
        .text("exfn", "")
        .i32("masv", 870)
        .byte("ckEn", 0)
        .f32("meTe", tempo)
        .i32("meSn", 4)
        .i32("meSd", 4)
        .i32("mevo", 100)
        .byte("telk", 1)
        .text("rpat", rootFolder)
        .i32("sara", 44100)
        .byte("loen", 0)
        .i32("lost", 0)
        .i32("loso", 0)
        .f32("mate", 1.0f);
}

inline std::vector<uint8_t> readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class ProjectFile : public ::testing::Test
{
protected:
    std::string folder() const { return temp_.path() + "/"; }

    testsupport::TempFolder temp_;
    fs::path root_{temp_.path()};
};

// Every field set away from its default, in a project of five tracks.
void fillEverything(Document& doc, const std::string& folder)
{
    doc.addElement(epiPath(folder + "audio/bass.wav"));
    doc.addElement(epiPath(folder + "audio/Audio_T1_1.aif"));
    doc.elements[1]->recorded = true;
    doc.addElement(epiPath("/elsewhere/chords.flac"));
    doc.tracks.push_back(std::make_unique<DocumentTrack>());
    for (size_t i = 0; i < doc.tracks.size(); ++i)
    {
        DocumentTrack& t = *doc.tracks[i];
        const float f = static_cast<float>(i);
        t.elementId = i < 3 ? static_cast<int32_t>(i + 1) : -1;
        t.volume = -3.5f - f;
        t.pan = -0.25f + f / 8.0f;
        t.speed = 0.75f + f / 100.0f;
        t.pitch = -2.0f + f;
        t.effectEnabled = (i % 2) == 0;
        t.effectLoaded = i != 1;
        const uint8_t state[] = {1, 2, static_cast<uint8_t>(i), 0, 255};
        t.effectState.copyBytes(state, i == 3 ? 0 : sizeof(state));
        t.input = static_cast<int32_t>(i % 3);
        t.armed = i == 2;
        t.solo = i == 1;
        t.mute = i == 3;
        t.frozen = i == 0;
        t.frozenPath = i == 0 ? epiPath(folder + "audio/bass_frozen.wav") : epiPath();
    }
    doc.sampleRate = 48000;
    doc.workFolder = folder + "takes/";
    doc.exportName = "mix.wav";
    doc.masterSlider = 640;
    doc.speedLink = false;
    doc.clickEnabled = true;
    doc.clickTempo = 133.3f;
    doc.clickNumerator = 7;
    doc.clickDenominator = 8;
    doc.clickVolume = 35;
    doc.loopEnabled = true;
    doc.loopStart = 44100;
    doc.loopEnd = 441000;
    doc.speedRatio = 0.5f;
    doc.inputGain = 13.5f;
}

// The file a saved new project with one element on track 1 must be, atom for atom.
FileBytes expectedSmallProject(const std::string& folder)
{
    FileBytes f;
    f.i32("vers", 4).i32("elcn", 1).i32("elid", 1).text("path", folder + "riff.wav").byte("kv3h", 1);
    f.i32("tkcn", 4);
    f.i32("elid", 1)
        .f32("volu", -6.0f)
        .f32("pann", 0.5f)
        .f32("temp", 0.75f)
        .f32("pich", 3.0f)
        .i32("inps", 0)
        .byte("fxen", 1)
        .byte("fxlo", 1)
        .byte("solo", 0)
        .byte("mute", 1)
        .byte("rarm", 1)
        .byte("froz", 0)
        .text("frpa", "")
        .dump({0xDE, 0xAD, 0xBE, 0xEF, 0x01});
    for (int i = 1; i < 4; ++i)
    {
        plainTrack(f, -1);
    }
    sessionUpToRatio(f, folder, 96.5f);
    f.f32("inga", 6.0f);
    return f;
}

// Records what it is asked to locate and answers with its choice, if it has one.
class Locator : public DocumentLocator
{
public:
    bool locate(epiPath& path, const epiText& title) override
    {
        titles.push_back(title);
        if (!choice.empty())
        {
            path = choice;
        }
        return !choice.empty();
    }
    std::string choice;
    std::vector<std::string> titles;
};

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
    std::ofstream(dir.file("Audio_T1_1.aif")) << "x";
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
        std::ofstream(dir.file("Audio_T2_" + std::to_string(n) + ".aif")) << "x";
    }
    take = "unchanged";
    EXPECT_FALSE(doc.newTakeFile(1, take));
    EXPECT_EQ(take, "unchanged");
    EXPECT_EQ(doc.tracks[1]->elementId, -1);
    EXPECT_EQ(doc.elements.size(), 2u);
}

TEST_F(ProjectFile, SavedLayoutMatchesTheHandBuiltFileAtomForAtom)
{
    Document doc;
    const int32_t id = doc.addElement(epiPath(folder() + "riff.wav"));
    doc.elements[0]->recorded = true;
    DocumentTrack& t = *doc.tracks[0];
    t.elementId = id;
    t.volume = -6.0f;
    t.pan = 0.5f;
    t.speed = 0.75f;
    t.pitch = 3.0f;
    t.mute = true;
    const uint8_t state[] = {0xDE, 0xAD, 0xBE, 0xEF, 0x01};
    t.effectState.copyBytes(state, sizeof(state));
    doc.workFolder = folder() + "takes/";
    doc.clickTempo = 96.5f;
    doc.clickVolume = 100;

    // The extension is forced to kv3h.
    ASSERT_TRUE(doc.save(epiPath(folder() + "small.project")));
    const std::string saved = folder() + "small.kv3h";
    EXPECT_FALSE(fs::exists(folder() + "small.project"));
    EXPECT_FALSE(fs::exists(saved + ".part"));
    EXPECT_EQ(doc.path, saved);
    EXPECT_EQ(doc.name, "small");
    EXPECT_EQ(doc.rootFolder, folder());

    EXPECT_EQ(readAll(saved), expectedSmallProject(folder()).bytes());
}

// Every field away from its default, swapped or dropped on the way, makes the second save differ.
TEST_F(ProjectFile, EveryFieldSavesAndLoadsBackEqual)
{
    Document doc;
    fillEverything(doc, folder());
    doc.modified = true;
    ASSERT_TRUE(doc.save(epiPath(folder() + "all.kv3h")));
    EXPECT_FALSE(doc.modified);

    Document back;
    ASSERT_TRUE(back.load(epiPath(folder() + "all.kv3h")));
    EXPECT_EQ(back.tracks.size(), 5u);
    EXPECT_EQ(back.name, "all");
    ASSERT_TRUE(back.save(epiPath(folder() + "again.kv3h")));
    EXPECT_EQ(readAll(folder() + "again.kv3h"), readAll(folder() + "all.kv3h"));
}

// A file of version 3, a missing one and an empty one: refused, leaving a new project.
TEST_F(ProjectFile, RefusedFilesLeaveANewProjectOfFourTracks)
{
    FileBytes f;
    f.i32("vers", 3).i32("elcn", 1).i32("elid", 1).text("path", "/a.wav").byte("kv3h", 0).i32("tkcn", 4);
    for (int i = 0; i < 4; ++i)
    {
        plainTrack(f, 1);
    }
    sessionUpToRatio(f, folder(), 100.0f);
    ASSERT_TRUE(f.writeTo(folder() + "old.kv3h"));
    std::ofstream(folder() + "empty.kv3h").close();
    for (const auto& [file, name] : {std::pair{"old", "old"}, {"absent", "Untitled"}, {"empty", "Untitled"}})
    {
        SCOPED_TRACE(file);
        Document doc;
        doc.addElement("/x.wav");
        EXPECT_FALSE(doc.load(epiPath(folder() + file + ".kv3h")));
        EXPECT_TRUE(doc.elements.empty());
        ASSERT_EQ(doc.tracks.size(), 4u);
        EXPECT_TRUE(doc.tracks[0]->armed);
        // A file that opened still names the project.
        EXPECT_EQ(doc.name, name);
    }
}

// Old files: one without the input gain, tempos too slow to use, fewer than four tracks.
TEST_F(ProjectFile, OldFilesLoadWithTheirGapsFilled)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Tracks, tempo and input gain (none when NaN) in the file, then the tempo and gain loaded.
    for (const auto& [tracks, tempo, gain, loadedTempo, loadedGain] :
         {std::tuple{4, 100.0f, nan, 100.0f, 6.0f}, std::tuple{4, 40.0f, 3.0f, 60.0f, 3.0f},
          std::tuple{4, -5.0f, 3.0f, 60.0f, 3.0f}, std::tuple{4, nan, 3.0f, 60.0f, 3.0f},
          std::tuple{2, 120.0f, nan, 120.0f, 6.0f}})
    {
        SCOPED_TRACE(testing::Message() << tracks << " tracks at " << tempo);
        FileBytes f;
        f.i32("vers", 4).i32("elcn", 0).i32("tkcn", tracks);
        for (int i = 0; i < tracks; ++i)
        {
            plainTrack(f, -1);
        }
        sessionUpToRatio(f, folder(), tempo);
        if (!std::isnan(gain))
        {
            f.f32("inga", gain);
        }
        ASSERT_TRUE(f.writeTo(folder() + "old.kv3h"));
        Document doc;
        doc.inputGain = 20.0f;
        EXPECT_TRUE(doc.load(epiPath(folder() + "old.kv3h")));
        EXPECT_EQ(doc.clickTempo, loadedTempo);
        EXPECT_FLOAT_EQ(doc.inputGain, loadedGain);
        // Saved here and loaded here: the work folder stays.
        EXPECT_EQ(doc.workFolder, folder() + "takes/");
        // The tracks from the file are as saved (track 1 unarmed); missing ones are added.
        ASSERT_EQ(doc.tracks.size(), 4u);
        EXPECT_FALSE(doc.tracks[0]->armed);
    }
}

TEST_F(ProjectFile, LoopPointsKeepOnlyTheirLowWords)
{
    Document doc;
    doc.loopStart = (int64_t{1} << 32) + 5;
    doc.loopEnd = (int64_t{3} << 32) + 700;
    ASSERT_TRUE(doc.save(epiPath(folder() + "long.kv3h")));

    Document fresh;
    ASSERT_TRUE(fresh.load(epiPath(folder() + "long.kv3h")));
    EXPECT_EQ(fresh.loopStart, 5);
    EXPECT_EQ(fresh.loopEnd, 700);

    // A high word in memory stays as it was at load.
    Document kept;
    kept.loopStart = int64_t{2} << 32;
    ASSERT_TRUE(kept.load(epiPath(folder() + "long.kv3h")));
    EXPECT_EQ(kept.loopStart, (int64_t{2} << 32) + 5);
}

TEST_F(ProjectFile, MovedProjectFolderFindsItsFilesWithoutAsking)
{
    const std::string before = folder() + "before/";
    fs::create_directories(before + "audio");
    std::ofstream(before + "audio/bass.wav") << "riff";
    std::ofstream(before + "audio/bass_frozen.wav") << "riff";
    Document doc;
    doc.tracks[0]->elementId = doc.addElement(epiPath(before + "audio/bass.wav"));
    doc.addElement(epiPath("/nowhere/lost.wav"));
    doc.tracks[0]->frozen = true;
    doc.tracks[0]->frozenPath = before + "audio/bass_frozen.wav";
    doc.workFolder = before + "audio/";
    ASSERT_TRUE(doc.save(epiPath(before + "song.kv3h")));
    const std::string after = folder() + "after/moved/";
    fs::create_directories(folder() + "after");
    fs::rename(before, after);

    Locator locator;
    Document back;
    ASSERT_TRUE(back.load(epiPath(after + "song.kv3h")));
    // The project moved: it no longer records into its old folder.
    EXPECT_TRUE(back.workFolder.empty());
    EXPECT_EQ(back.locateFiles(&locator), 1);
    EXPECT_EQ(static_cast<const std::string&>(*back.elements[0]), after + "audio/bass.wav");
    EXPECT_EQ(back.tracks[0]->frozenPath, after + "audio/bass_frozen.wav");
    // Only the file that is nowhere was asked for, under its own name.
    EXPECT_EQ(locator.titles, std::vector<std::string>{"Locate: lost.wav"});
    EXPECT_EQ(static_cast<const std::string&>(*back.elements[1]), "/nowhere/lost.wav");
    // A choice replaces the missing path.
    locator.choice = after + "audio/bass.wav";
    EXPECT_EQ(back.locateFiles(&locator), 0);
    EXPECT_EQ(static_cast<const std::string&>(*back.elements[1]), locator.choice);
}

TEST_F(ProjectFile, FailedSaveKeepsTheOldFileAndTheDocumentsPath)
{
    Document doc;
    doc.clickTempo = 99.0f;
    ASSERT_TRUE(doc.save(epiPath(folder() + "keep.kv3h")));
    const std::vector<uint8_t> good = readAll(folder() + "keep.kv3h");

    Document other;
    other.save(epiPath(folder() + "no/such/folder/x.kv3h"));
    EXPECT_TRUE(other.path.empty());
    EXPECT_EQ(other.name, "Untitled");
    EXPECT_EQ(other.rootFolder, folder() + "no/such/folder/");

    // A folder that can't be written: the old file is neither truncated nor replaced.
    fs::permissions(root_, fs::perms::owner_write, fs::perm_options::remove);
    EXPECT_TRUE(testsupport::asUnprivileged(
        [&]
        {
            doc.clickTempo = 150.0f;
            doc.modified = true;
            return !doc.save(epiPath(folder() + "keep.kv3h")) && doc.modified;
        }));
    fs::permissions(root_, fs::perms::owner_write, fs::perm_options::add);
    EXPECT_EQ(readAll(folder() + "keep.kv3h"), good);
}

// Every cut of a full file: at least four tracks, a usable tempo, and only what was saved.
TEST_F(ProjectFile, EveryTruncationLoadsAPartialProject)
{
    Document doc;
    fillEverything(doc, folder());
    ASSERT_TRUE(doc.save(epiPath(folder() + "full.kv3h")));
    const std::vector<uint8_t> full = readAll(folder() + "full.kv3h");
    const std::string cut = folder() + "cut.kv3h";
    size_t successes = 0;
    for (size_t length = 0; length < full.size(); ++length)
    {
        {
            std::ofstream out(cut, std::ios::binary | std::ios::trunc);
            out.write(reinterpret_cast<const char*>(full.data()), static_cast<std::streamsize>(length));
        }
        Document back;
        successes += back.load(epiPath(cut)) ? 1 : 0;
        ASSERT_GE(back.tracks.size(), 4u) << length;
        ASSERT_GE(back.clickTempo, 60.0f) << length;
        // Whatever was read before the cut is what was saved.
        ASSERT_LE(back.elements.size(), doc.elements.size()) << length;
        for (size_t i = 0; i < back.elements.size(); ++i)
        {
            ASSERT_TRUE(back.elements[i]->id == -1 || back.elements[i]->id == doc.elements[i]->id) << length;
        }
    }
    // Only a file cut inside the optional input gain (or not at all) reads completely.
    EXPECT_EQ(successes, 16u);
}

TEST_F(ProjectFile, DemoSessionCopiedElsewherePlaysTheCopiedAudio)
{
    const char* source = std::getenv("KV3_SOURCE_DIR");
    ASSERT_NE(source, nullptr);
    const fs::path demo = fs::path(source) / "resources" / "demo";
    for (const char* name : {"demo.kv3h", "demo_bass.flac", "demo_chords.flac"})
    {
        fs::copy_file(demo / name, root_ / name);
    }
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(folder() + "demo.kv3h")));
    EXPECT_EQ(doc.locateFiles(nullptr), 0);
    ASSERT_EQ(doc.elements.size(), 2u);
    EXPECT_EQ(static_cast<const std::string&>(*doc.elements[1]), folder() + "demo_chords.flac");
    // Copied elsewhere, it doesn't record into the folder it came from.
    EXPECT_TRUE(doc.workFolder.empty());
}
