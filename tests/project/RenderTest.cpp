// A project made and rendered with the kv3 program gives the same file as the export job run here,
// through the document and the engine; and the document's tracks reach the engine and come back.

#include "engine/ExporterJobs.h"
#include "engine/Manager.h"
#include "project/Document.h"
#include "project/DocumentSession.h"
#include "tests/support/PluginEnv.h"
#include "tests/support/Program.h"
#include "tests/support/RecordingDelegate.h"
#include "tests/support/Signal.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace
{

using Audio = testsound::Sound;

bool writeAudio(const std::string& path, int32_t rate, int64_t frames, double frequency)
{
    std::vector<float> data;
    for (int64_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / rate;
        data.push_back(static_cast<float>(0.3 * std::sin(2 * M_PI * frequency * t)));
        data.push_back(static_cast<float>(0.2 * std::sin(2 * M_PI * frequency * 1.25 * t)));
    }
    return testsound::write(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2, data);
}

std::string bytesOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** A Manager at 44100 Hz that reports to a recording delegate. */
struct Engine
{
    explicit Engine(uint32_t block = 256)
    {
        manager.setDelegate(&delegate);
        manager.setFormat(44100, block);
    }
    testsupport::RecordingDelegate delegate;
    Manager manager;
};

class RenderRig : public ::testing::Test
{
protected:
    std::string file(const std::string& name) const { return temp_.file(name); }

    int kv3(const std::string& arguments)
    {
        last_ = testsupport::runProgram(KV3_BIN, arguments);
        return last_.exit;
    }

    /** A new project `name` (with `create` options) holding `audio` on track 1, unarmed, then `set`. */
    std::string project(const std::string& name, const std::string& audio, const std::string& set = "",
                        const std::string& create = "")
    {
        const std::string path = file(name);
        EXPECT_EQ(kv3("project new " + path + create), 0);
        EXPECT_EQ(kv3("project set " + path + " --track 1 --file " + audio + " --armed off " + set), 0);
        return path;
    }

    // Both this process and the program load the test library that halves its input, and no stored
    // setting may point elsewhere.
    testsupport::PluginEnv plugin_{KV3_TEST_GAIN};
    testsupport::TempFolder temp_;
    testsupport::ProgramResult last_;
};

} // namespace

TEST_F(RenderRig, ProgramRenderEqualsTheExportJobOnTheSameProject)
{
    ASSERT_TRUE(writeAudio(file("bass.wav"), 44100, 44100 * 3 + 777, 110.0));
    ASSERT_TRUE(writeAudio(file("keys.wav"), 44100, 44100 * 2, 440.0));
    const std::string song = project("song.kv3h", file("bass.wav"),
                                     "--volume -3 --pan -0.4 --master 0 --tempo 90", " --rate 44100");
    ASSERT_EQ(kv3("project set " + song + " --track 3 --file " + file("keys.wav") + " --pan 0.5 --fx off"),
              0);
    ASSERT_EQ(kv3("render " + song + " " + file("program.wav") + " --depth float"), 0);

    Document doc;
    ASSERT_TRUE(doc.load(epiPath(song)));
    {
        Engine engine(512);
        applyDocumentSession(doc, engine.manager, nullptr);
        ASSERT_TRUE(engine.manager.trackNode(0).effect().hasInstance()) << "the test library did not load";
        ManagerJobs::startExport(engine.manager, epiPath(file("here.wav")), AudioFileFormats::kWave,
                                 AudioFileFormats::k32BitFloat, false);
        while (engine.manager.hasTask())
            engine.manager.poll();
        ASSERT_TRUE(engine.delegate.finished);
    }
    const Audio program = testsound::read(file("program.wav"));
    ASSERT_EQ(program.samples.size(), size_t(2 * (44100 * 3 + 777)));
    EXPECT_EQ(program.samples, testsound::read(file("here.wav")).samples);
    // The bass went through its effect at half level, panned left: its left side is audible.
    EXPECT_GT(testsignal::peak(program.channel(0).data(), program.frames()), 0.2);
    // The program wrote under a temporary name and renamed it: nothing of it is left over.
    for (const auto& entry : fs::directory_iterator(temp_.path()))
        EXPECT_EQ(entry.path().filename().string().find(".part-"), std::string::npos) << entry.path();
}

TEST_F(RenderRig, RenderRefusesBadInputAndLeavesNothing)
{
    ASSERT_EQ(kv3("project new " + file("empty.kv3h")), 0);
    std::ofstream(file("junk.kv3h")) << "not a project";
    // All four tracks empty, a missing project, a project that isn't one, a format it can't write.
    for (const auto& [project, out, exit] : {std::tuple{"empty", "out.wav", 1},
                                             {"missing", "out.wav", 1},
                                             {"junk", "out.wav", 1},
                                             {"empty", "out.mp3", 2},
                                             {"empty", "out.wav --depth 12", 2}})
    {
        EXPECT_EQ(kv3("render " + file(project + std::string(".kv3h")) + " " + file(out)), exit)
            << project << out;
    }
    for (const auto& entry : fs::directory_iterator(temp_.path()))
        EXPECT_EQ(entry.path().filename().string().find("out."), std::string::npos) << entry.path();
}

TEST_F(RenderRig, FreezeAndUnfreezeThroughTheProgramSaveTheProject)
{
    ASSERT_TRUE(writeAudio(file("gtr.wav"), 44100, 44100 + 100, 220.0));
    const std::string f = project("f.kv3h", file("gtr.wav"));
    EXPECT_EQ(kv3("freeze " + f + " --track 2"), 1);
    ASSERT_EQ(kv3("freeze " + f + " --track 1"), 0);
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(f)));
    EXPECT_TRUE(doc.tracks[0]->frozen);
    EXPECT_EQ(doc.tracks[0]->frozenPath, file("gtr_T1_frozen.wav"));
    const Audio frozen = testsound::read(file("gtr_T1_frozen.wav"));
    const Audio original = testsound::read(file("gtr.wav"));
    ASSERT_EQ(frozen.samples.size(), original.samples.size());
    // Through the halving effect, in 24 bit.
    for (size_t i = 0; i < frozen.samples.size(); i += 997)
        ASSERT_NEAR(frozen.samples[i], 0.5f * original.samples[i], 1e-6) << i;

    ASSERT_EQ(kv3("unfreeze " + f + " --track 1"), 0);
    ASSERT_TRUE(doc.load(epiPath(f)));
    EXPECT_FALSE(doc.tracks[0]->frozen);
    EXPECT_FALSE(fs::exists(file("gtr_T1_frozen.wav")));
    EXPECT_TRUE(fs::exists(file("gtr.wav")));
}

TEST_F(RenderRig, TracksGoIntoTheEngineAndComeBack)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100, 300.0));
    ASSERT_TRUE(writeAudio(file("b.wav"), 44100, 44100, 300.0));
    Document doc;
    doc.tracks[1]->elementId = doc.addElement(epiPath(file("a.wav")));
    DocumentTrack& t = *doc.tracks[1];
    t.volume = -7.5f;
    t.pan = 0.25f;
    t.speed = 0.75f;
    t.pitch = 2.0f;
    t.solo = true;
    t.mute = true;
    t.input = 1;
    t.effectEnabled = true;
    t.effectLoaded = true;
    // Before, applying a track that was not frozen but kept a frozen path deleted the file at that path.
    t.frozenPath = file("b.wav");
    Engine engine;
    doc.applyAll(engine.manager);
    EXPECT_TRUE(fs::exists(file("b.wav")));
    EXPECT_EQ(engine.manager.trackNode(1).filePath(), file("a.wav"));
    // A second at three quarter speed lasts 58800 frames.
    EXPECT_EQ(engine.manager.trackLength(1), 58800);

    Document back;
    back.captureAll(engine.manager);
    const DocumentTrack& b = *back.tracks[1];
    EXPECT_FLOAT_EQ(b.volume, -7.5f);
    EXPECT_FLOAT_EQ(b.pan, 0.25f);
    EXPECT_FLOAT_EQ(b.speed, 0.75f);
    EXPECT_FLOAT_EQ(b.pitch, 2.0f);
    EXPECT_TRUE(b.solo && b.mute && b.effectEnabled && b.effectLoaded);
    EXPECT_EQ(b.input, 1);
    EXPECT_TRUE(b.frozenPath.empty());
    EXPECT_TRUE(back.tracks[0]->armed);
    EXPECT_FALSE(b.armed);
    // The effect's state came back from the running instance.
    EXPECT_GT(b.effectState.size(), 0u);
}

TEST_F(RenderRig, ProjectCommandChangesOnlyWhatItIsToldAndRefusesBadValues)
{
    const std::string p = file("p.kv3h");
    // The extension is always kv3h.
    ASSERT_EQ(kv3("project new " + file("p.txt") + " --rate 48000"), 0);
    ASSERT_TRUE(writeAudio(file("x.wav"), 48000, 4800, 100.0));
    ASSERT_EQ(kv3("project set " + p + " --track 4 --file " + file("x.wav") +
                  " --volume -12.5 --pan 1 --speed 0.5 --pitch -3 --mute on --solo on --input right --fx on"),
              0);
    ASSERT_EQ(kv3("project set " + p +
                  " --loop 100:4000 --loop-on on --ratio 2 --click on --tempo 133.5"
                  " --signature 7/8 --click-volume 25 --master -10"),
              0);
    const std::string before = bytesOf(p);
    // Every bad value is refused with the usage status, and the project stays byte for byte as it was.
    for (const char* bad : {"--track 5 --mute on", "--track 1 --pan 2", "--track 1 --input middle",
                            "--track 1 --mute maybe", "--ratio 3", "--tempo 30", "--signature 9/4",
                            "--loop 50:10", "--click-volume 101", "--volume 3", "--track 1 --speed fast"})
    {
        EXPECT_EQ(kv3("project set " + p + " " + bad), 2) << bad;
    }
    EXPECT_EQ(kv3("project set " + p + " --track 1 --file " + file("nothing.wav")), 1);
    EXPECT_EQ(kv3("project set " + file("absent.kv3h") + " --tempo 100"), 1);
    EXPECT_EQ(kv3("project frobnicate " + p), 2);
    EXPECT_EQ(bytesOf(p), before);

    Document doc;
    ASSERT_TRUE(doc.load(epiPath(p)));
    const DocumentTrack& t = *doc.tracks[3];
    EXPECT_EQ(doc.trackElementIndex(3), 0);
    EXPECT_FLOAT_EQ(t.volume, -12.5f);
    EXPECT_FLOAT_EQ(t.pitch, -3.0f);
    EXPECT_TRUE(t.mute && t.solo && t.effectEnabled);
    // Untouched: a new project's first track stays armed.
    EXPECT_TRUE(doc.tracks[0]->armed);
    EXPECT_NEAR(Document::masterDb(doc.masterSlider), -10.0f, 0.03f);

    // The rest as the program shows it.
    ASSERT_EQ(kv3("project show --json " + p), 0);
    for (const char* key : {"\"sample_rate\":48000", "\"speed_ratio\":2", "\"tempo\":133.5", "\"pan\":1",
                            "\"speed\":0.5", "\"loop\":{\"enabled\":true,\"start\":100,\"end\":4000}",
                            "\"numerator\":7", "\"denominator\":8", "\"input\":\"right\"", "\"element\":-1"})
    {
        EXPECT_NE(last_.out.find(key), std::string::npos) << key << " in " << last_.out;
    }
}

TEST_F(RenderRig, RenderWithClickPutsTheAccentedClickOnEveryBeat)
{
    // A silent track makes the session 2.5 seconds long; all that is heard is the click.
    ASSERT_TRUE(testsound::write(file("silence.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2,
                                 std::vector<float>(2 * 110250, 0.0f)));
    const std::string p =
        project("click.kv3h", file("silence.wav"), "--tempo 120 --signature 4/4 --click-volume 100");
    ASSERT_EQ(kv3("render " + p + " " + file("plain.wav") + " --depth float"), 0);
    ASSERT_EQ(kv3("render " + p + " " + file("clicked.wav") + " --depth float --with-click"), 0);

    // Without the option the export keeps the click out.
    EXPECT_EQ(testsound::read(file("plain.wav")).samples, std::vector<float>(2 * 110250, 0.0f));
    // With it: clicks of 1292 frames on every 22050th frame, silence between.
    const std::vector<float> left = testsound::read(file("clicked.wav")).channel(0);
    ASSERT_EQ(left.size(), 110250u);
    for (int64_t beat = 0; beat < 5; ++beat)
    {
        EXPECT_GT(testsignal::peak(left.data() + beat * 22050, 1292), 0.01) << beat;
        EXPECT_EQ(testsignal::peak(left.data() + beat * 22050 + 1292,
                                   std::min<int64_t>(22050, 110250 - beat * 22050) - 1292),
                  0.0)
            << beat;
    }
    // Beat 4 starts the second bar: the same accented click as beat 0, unlike beat 1.
    EXPECT_TRUE(std::equal(left.begin(), left.begin() + 1292, left.begin() + 4 * 22050));
    EXPECT_FALSE(std::equal(left.begin(), left.begin() + 1292, left.begin() + 22050));
}

TEST_F(RenderRig, SessionValuesReachTheEngineAsTheWindowSetsThem)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 4, 200.0));
    Document doc;
    doc.tracks[0]->elementId = doc.addElement(epiPath(file("a.wav")));
    doc.speedRatio = 2.0f;
    doc.loopStart = 10000;
    doc.loopEnd = 90000;
    doc.loopEnabled = true;
    doc.clickTempo = 90.0f;
    doc.clickNumerator = 3;
    doc.clickDenominator = 8;
    doc.clickVolume = 60;
    doc.masterSlider = 1000;
    doc.inputGain = 12.0f;
    Engine engine;
    Manager& manager = engine.manager;
    applyDocumentSession(doc, manager, &manager.metronomeNode());
    // Loop points are session frames, kept in engine frames at half.
    EXPECT_EQ(manager.loopEnd(), 90000);
    EXPECT_EQ(manager.loopStartFrames(), 5000);
    EXPECT_TRUE(manager.isLoopEnabled());
    // The click runs at the session tempo times the ratio, 180 quarter notes a minute, in eighths.
    EXPECT_FLOAT_EQ(manager.metronome().tempo(), 180.0f);
    EXPECT_EQ(manager.metronomeNode().framesPerBeat(), 7350);
    EXPECT_EQ(manager.metronome().numerator(), 3);
    EXPECT_FLOAT_EQ(manager.mixerInput(Manager::kMetronomeIndex).volume(), -16.0f);
    EXPECT_FLOAT_EQ(manager.masterVolume(), 6.0f);
    EXPECT_FLOAT_EQ(manager.inputGainDb(), 12.0f);
    // Four seconds of file at a speed ratio of 2 is 176400 session frames.
    EXPECT_EQ(manager.sessionLength(), 176400);
}

TEST_F(RenderRig, ProgressIsDrawnOnATerminalAndNowhereElse)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 6, 220.0));
    const std::string p = project("p.kv3h", file("a.wav"));
    ASSERT_EQ(kv3("render " + p + " " + file("quiet.wav")), 0);
    EXPECT_EQ(last_.err, "");
    // On a terminal: the bar is redrawn in place and ends at 100%.
    const testsupport::ProgramResult shown =
        testsupport::runProgram(KV3_BIN, "render " + p + " " + file("shown.wav"), true);
    EXPECT_EQ(shown.exit, 0) << shown.out;
    EXPECT_NE(shown.out.find("\rrender ["), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("] 100%"), std::string::npos) << shown.out;
}

TEST_F(RenderRig, LoopSavedAtHalfSpeedComesBackAsSaved)
{
    // Before, the loop went in after the ratio and was cut to a length in the other unit: end before start.
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 4, 200.0));
    const std::string p = project("p.kv3h", file("a.wav"), "--ratio 0.5 --loop 100000:170000 --loop-on on");
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(p)));
    Engine engine;
    applyDocumentSession(doc, engine.manager, nullptr);
    EXPECT_TRUE(engine.manager.isLoopEnabled());
    EXPECT_EQ(engine.manager.loopStart(), 100000);
    EXPECT_EQ(engine.manager.loopEnd(), 170000);
    EXPECT_EQ(kv3("render " + p + " " + file("loop.wav") + " --loop"), 0);
    EXPECT_GT(testsound::read(file("loop.wav")).frames(), 0);
}

TEST_F(RenderRig, FreezeIntoAReadOnlyFolderFailsAndLeavesTheProject)
{
    // Before, the freeze said yes and saved the project frozen onto a file that was never written.
    const fs::path readOnly = fs::path(temp_.path()) / "ro";
    fs::create_directory(readOnly);
    ASSERT_TRUE(writeAudio((readOnly / "gtr.wav").string(), 44100, 44100, 220.0));
    const std::string p = file("f.kv3h");
    ASSERT_EQ(kv3("project new " + p), 0);
    ASSERT_EQ(kv3("project set " + p + " --track 1 --file " + (readOnly / "gtr.wav").string()), 0);
    const std::string bytes = bytesOf(p);
    fs::permissions(readOnly, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove);
    std::string bin = KV3_BIN;
    if (::geteuid() == 0)
    {
        // Root writes anywhere: the program runs as nobody, from a copy it can reach, over files it owns.
        fs::copy_file(KV3_BIN, file("kv3"));
        fs::copy_file(KV3_TEST_GAIN, file("gain.so"));
        ::setenv("KV3_VPA2_PATH", file("gain.so").c_str(), 1);
        bin = file("kv3");
        for (const auto& entry : fs::recursive_directory_iterator(temp_.path()))
            ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);
        ASSERT_EQ(::chown(temp_.path().c_str(), 65534, 65534), 0);
    }
    EXPECT_TRUE(testsupport::asUnprivileged(
        [&]
        {
            const testsupport::ProgramResult r = testsupport::runProgram(bin, "freeze " + p + " --track 1");
            return r.exit == 1 && r.err.find("gtr_T1_frozen.wav") != std::string::npos;
        }));
    fs::permissions(readOnly, fs::perms::owner_write, fs::perm_options::add);
    EXPECT_TRUE(bytesOf(p) == bytes) << "the project changed";
    EXPECT_FALSE(fs::exists(readOnly / "gtr_T1_frozen.wav"));
}

TEST_F(RenderRig, FilesAtRatesWithoutACommonTableRenderAtTheirPitchAndLength)
{
    // Before, a file whose rate shares too small a divisor with the project's was refused: silence.
    for (const auto& [fileRate, projectRate] : {std::pair{44056, 44100}, {31337, 48000}})
    {
        const std::string name = std::to_string(fileRate) + "-" + std::to_string(projectRate);
        ASSERT_TRUE(writeAudio(file(name + ".wav"), fileRate, fileRate * 2, 440.0));
        const std::string p = project(name + ".kv3h", file(name + ".wav"), "--fx off",
                                      " --rate " + std::to_string(projectRate));
        ASSERT_EQ(kv3("render " + p + " " + file(name + "-out.wav") + " --depth float"), 0);
        const Audio out = testsound::read(file(name + "-out.wav"));
        EXPECT_NEAR(out.frames(), 2 * projectRate, 2) << name;
        // The tone's period over the middle, at the project's rate.
        const std::vector<float> left = out.channel(0);
        EXPECT_NEAR(testsignal::meanFrequency(left.data() + projectRate / 4, out.frames() - projectRate / 2,
                                              projectRate),
                    440.0, 0.44)
            << name;
    }
}

TEST_F(RenderRig, RenderSaysWhichFileTheResamplerRefuses)
{
    // Before, a file the resampler refused rendered as silence without a word.
    ASSERT_TRUE(writeAudio(file("far.wav"), 9000000, 90000, 1000.0));
    const std::string p = project("p.kv3h", file("far.wav"), "", " --rate 8000");
    EXPECT_EQ(kv3("render " + p + " " + file("out.wav")), 0);
    EXPECT_NE(last_.err.find(file("far.wav") + " can't be played at 8000 Hz"), std::string::npos)
        << last_.err;
}
