// A project made and rendered with the kv3 program gives the same file as the export job run here,
// through the document and the engine; and the document's tracks reach the engine and come back.

#include "engine/ExporterJobs.h"
#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
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

Audio readAudio(const std::string& path)
{
    return testsound::read(path);
}

using QuietDelegate = testsupport::RecordingDelegate;

class RenderRig : public ::testing::Test
{
protected:
    std::string file(const std::string& name) const { return (folder_ / name).string(); }

    int kv3(const std::string& arguments)
    {
        last_ = testsupport::runProgram(KV3_BIN, arguments);
        return last_.exit;
    }

    void renderBothWays(int32_t keysRate, double& worst);

    // Both this process and the program load the test library that halves its input, and no stored
    // setting may point elsewhere.
    testsupport::PluginEnv plugin_{KV3_TEST_GAIN};
    testsupport::TempFolder temp_;
    fs::path folder_{temp_.path()};
    testsupport::ProgramResult last_;
};

} // namespace

// Renders one project with the program and with the export job here, and gives the largest
// difference of a sample between the two files (which must have the same shape).
void RenderRig::renderBothWays(int32_t keysRate, double& worst)
{
    worst = -1.0;
    ASSERT_TRUE(writeAudio(file("bass.wav"), 44100, 44100 * 3 + 777, 110.0));
    ASSERT_TRUE(writeAudio(file("keys.wav"), keysRate, keysRate * 2, 440.0));
    const std::string project = file("song.kv3h");
    ASSERT_EQ(kv3("project new " + project + " --rate 44100"), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("bass.wav") +
                  " --armed off --volume -3 --pan -0.4"),
              0);
    ASSERT_EQ(kv3("project set " + project + " --track 3 --file " + file("keys.wav") + " --pan 0.5 --fx off"),
              0);
    ASSERT_EQ(kv3("project set " + project + " --master 0 --tempo 90"), 0);
    ASSERT_EQ(kv3("render " + project + " " + file("program.wav") + " --depth float"), 0);

    // The same project through the document and the export job, here.
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(project)));
    EXPECT_FALSE(doc.tracks[0]->armed);
    EXPECT_TRUE(doc.tracks[0]->effectEnabled);
    QuietDelegate delegate;
    {
        Manager manager;
        manager.setDelegate(&delegate);
        manager.setFormat(44100, 512);
        applyDocumentSession(doc, manager, nullptr);
        ASSERT_TRUE(manager.trackNode(0).effect().hasInstance()) << "the test library did not load";
        ManagerJobs::startExport(manager, epiPath(file("here.wav")), AudioFileFormats::kWave,
                                 AudioFileFormats::k32BitFloat, false);
        while (manager.hasTask())
            manager.poll();
    }
    ASSERT_TRUE(delegate.finished);

    const Audio program = readAudio(file("program.wav"));
    const Audio here = readAudio(file("here.wav"));
    EXPECT_EQ(program.rate, 44100);
    EXPECT_EQ(program.channels, 2);
    ASSERT_EQ(program.samples.size(), here.samples.size());
    ASSERT_EQ(program.samples.size(), size_t(2 * (44100 * 3 + 777)));
    worst = 0.0;
    for (size_t i = 0; i < here.samples.size(); ++i)
        worst = std::max(worst, std::fabs(double(program.samples[i]) - here.samples[i]));
    // The bass went through its effect at half level, panned left: its left side is audible.
    float peak = 0.0f;
    for (size_t i = 0; i < program.samples.size(); i += 2)
        peak = std::max(peak, std::fabs(program.samples[i]));
    EXPECT_GT(peak, 0.2f);
    // The program wrote under a temporary name and renamed it: nothing of it is left over.
    for (const auto& entry : fs::directory_iterator(folder_))
        EXPECT_EQ(entry.path().filename().string().find(".part-"), std::string::npos) << entry.path();
}

TEST_F(RenderRig, ProgramRenderEqualsTheExportJobOnTheSameProject)
{
    double worst = -1.0;
    renderBothWays(44100, worst);
    EXPECT_EQ(worst, 0.0);
}

TEST_F(RenderRig, RenderRefusesBadInputAndLeavesNothing)
{
    ASSERT_EQ(kv3("project new " + file("empty.kv3h")), 0);
    // All four tracks empty: nothing to render, and no output or temporary file remains.
    EXPECT_EQ(kv3("render " + file("empty.kv3h") + " " + file("out.wav")), 1);
    EXPECT_EQ(kv3("render " + file("missing.kv3h") + " " + file("out.wav")), 1);
    EXPECT_EQ(kv3("render " + file("empty.kv3h") + " " + file("out.mp3")), 2);
    EXPECT_EQ(kv3("render " + file("empty.kv3h") + " " + file("out.wav") + " --depth 12"), 2);
    std::ofstream(file("junk.kv3h")) << "not a project";
    EXPECT_EQ(kv3("render " + file("junk.kv3h") + " " + file("out.wav")), 1);
    for (const auto& entry : fs::directory_iterator(folder_))
    {
        const std::string name = entry.path().filename().string();
        EXPECT_EQ(name.find("out.wav"), std::string::npos) << entry.path();
        EXPECT_EQ(name.find("out.mp3"), std::string::npos) << entry.path();
    }
}

TEST_F(RenderRig, FreezeAndUnfreezeThroughTheProgramSaveTheProject)
{
    ASSERT_TRUE(writeAudio(file("gtr.wav"), 44100, 44100 + 100, 220.0));
    const std::string project = file("f.kv3h");
    ASSERT_EQ(kv3("project new " + project), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("gtr.wav") + " --armed off"), 0);
    EXPECT_EQ(kv3("freeze " + project + " --track 2"), 1);
    ASSERT_EQ(kv3("freeze " + project + " --track 1"), 0);
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(project)));
    EXPECT_TRUE(doc.tracks[0]->frozen);
    EXPECT_EQ(doc.tracks[0]->frozenPath, file("gtr_T1_frozen.wav"));
    const Audio frozen = readAudio(file("gtr_T1_frozen.wav"));
    const Audio original = readAudio(file("gtr.wav"));
    ASSERT_EQ(frozen.samples.size(), original.samples.size());
    // Through the halving effect, in 24 bit.
    for (size_t i = 0; i < frozen.samples.size(); i += 997)
        ASSERT_NEAR(frozen.samples[i], 0.5f * original.samples[i], 1e-6) << i;

    ASSERT_EQ(kv3("unfreeze " + project + " --track 1"), 0);
    ASSERT_TRUE(doc.load(epiPath(project)));
    EXPECT_FALSE(doc.tracks[0]->frozen);
    EXPECT_FALSE(fs::exists(file("gtr_T1_frozen.wav")));
    EXPECT_TRUE(fs::exists(file("gtr.wav")));
}

TEST_F(RenderRig, TracksGoIntoTheEngineAndComeBack)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100, 300.0));
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
    QuietDelegate delegate;
    Manager manager;
    manager.setDelegate(&delegate);
    manager.setFormat(44100, 256);
    doc.applyAll(manager);
    EXPECT_FLOAT_EQ(manager.mixerInput(1).volume(), -7.5f);
    EXPECT_FLOAT_EQ(manager.mixerInput(1).pan(), 0.25f);
    EXPECT_TRUE(manager.mixerInput(1).isSolo());
    EXPECT_TRUE(manager.mixerInput(1).isMuted());
    EXPECT_FLOAT_EQ(manager.track(1).speed(), 0.75f);
    EXPECT_FLOAT_EQ(manager.track(1).pitch(), 2.0f);
    EXPECT_EQ(manager.track(1).input(), 1);
    EXPECT_TRUE(manager.track(0).isArmed());
    EXPECT_FALSE(manager.track(1).isArmed());
    EXPECT_EQ(manager.trackNode(1).filePath(), file("a.wav"));
    // A second at three quarter speed lasts 58800 frames.
    EXPECT_EQ(manager.trackLength(1), 58800);
    ASSERT_TRUE(manager.trackNode(1).effect().hasInstance());

    Document back;
    back.captureAll(manager);
    const DocumentTrack& b = *back.tracks[1];
    EXPECT_FLOAT_EQ(b.volume, -7.5f);
    EXPECT_FLOAT_EQ(b.pan, 0.25f);
    EXPECT_FLOAT_EQ(b.speed, 0.75f);
    EXPECT_FLOAT_EQ(b.pitch, 2.0f);
    EXPECT_TRUE(b.solo);
    EXPECT_TRUE(b.mute);
    EXPECT_EQ(b.input, 1);
    EXPECT_TRUE(b.effectEnabled);
    EXPECT_TRUE(b.effectLoaded);
    EXPECT_FALSE(b.frozen);
    EXPECT_TRUE(back.tracks[0]->armed);
    // The effect's state came back from the running instance.
    EXPECT_GT(b.effectState.size(), 0u);
}

TEST_F(RenderRig, ProjectCommandChangesOnlyWhatItIsToldAndRefusesBadValues)
{
    const std::string project = file("p.kv3h");
    ASSERT_EQ(kv3("project new " + file("p.txt") + " --rate 48000"), 0);
    // The extension is always kv3h.
    ASSERT_TRUE(fs::exists(project));
    ASSERT_TRUE(writeAudio(file("x.wav"), 48000, 4800, 100.0));
    ASSERT_EQ(kv3("project set " + project + " --track 4 --file " + file("x.wav") +
                  " --volume -12.5 --pan 1 --speed 0.5 --pitch -3 --mute on --solo on --input right --fx on"),
              0);
    ASSERT_EQ(kv3("project set " + project +
                  " --loop 100:4000 --loop-on on --ratio 2 --click on --tempo 133.5"
                  " --signature 7/8 --click-volume 25 --master -10"),
              0);
    const std::vector<uint8_t> before = [&]
    {
        std::ifstream in(project, std::ios::binary);
        return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }();
    // Every bad value is refused with the usage status, and the project stays byte for byte as it was.
    for (const char* bad : {"--track 5 --mute on", "--track 1 --pan 2", "--track 1 --input middle",
                            "--track 1 --mute maybe", "--ratio 3", "--tempo 30", "--signature 9/4",
                            "--loop 50:10", "--click-volume 101", "--volume 3", "--track 1 --speed fast"})
    {
        EXPECT_EQ(kv3("project set " + project + " " + bad), 2) << bad;
    }
    EXPECT_EQ(kv3("project set " + project + " --track 1 --file " + file("nothing.wav")), 1);
    EXPECT_EQ(kv3("project set " + file("absent.kv3h") + " --tempo 100"), 1);
    EXPECT_EQ(kv3("project frobnicate " + project), 2);
    std::ifstream in(project, std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()),
              before);

    Document doc;
    ASSERT_TRUE(doc.load(epiPath(project)));
    EXPECT_EQ(doc.sampleRate, 48000);
    const DocumentTrack& t = *doc.tracks[3];
    EXPECT_EQ(doc.trackElementIndex(3), 0);
    EXPECT_FLOAT_EQ(t.volume, -12.5f);
    EXPECT_FLOAT_EQ(t.pan, 1.0f);
    EXPECT_FLOAT_EQ(t.speed, 0.5f);
    EXPECT_FLOAT_EQ(t.pitch, -3.0f);
    EXPECT_TRUE(t.mute);
    EXPECT_TRUE(t.solo);
    EXPECT_EQ(t.input, 1);
    EXPECT_TRUE(t.effectEnabled);
    EXPECT_TRUE(t.effectLoaded);
    // Untouched: a new project's first track stays armed.
    EXPECT_TRUE(doc.tracks[0]->armed);
    EXPECT_EQ(doc.loopStart, 100);
    EXPECT_EQ(doc.loopEnd, 4000);
    EXPECT_TRUE(doc.loopEnabled);
    EXPECT_FLOAT_EQ(doc.speedRatio, 2.0f);
    EXPECT_TRUE(doc.clickEnabled);
    EXPECT_FLOAT_EQ(doc.clickTempo, 133.5f);
    EXPECT_EQ(doc.clickNumerator, 7);
    EXPECT_EQ(doc.clickDenominator, 8);
    EXPECT_EQ(doc.clickVolume, 25);
    EXPECT_NEAR(Document::masterDb(doc.masterSlider), -10.0f, 0.03f);

    ASSERT_EQ(kv3("project show --json " + project), 0);
    const std::string text = last_.out;
    for (const char* key :
         {"\"version\":4", "\"sample_rate\":48000", "\"speed_ratio\":2", "\"input_gain\":6",
          "\"master_slider\":", "\"loop\":{\"enabled\":true,\"start\":100,\"end\":4000}", "\"numerator\":7",
          "\"denominator\":8", "\"elements\":[{\"id\":1", "\"recorded\":false", "\"input\":\"right\"",
          "\"fx_enabled\":true", "\"frozen_path\":\"\"", "\"element\":-1"})
    {
        EXPECT_NE(text.find(key), std::string::npos) << key << " in " << text;
    }
}

TEST_F(RenderRig, RenderWithClickPutsTheAccentedClickOnEveryBeat)
{
    // A silent track makes the session 2.5 seconds long; all that is heard is the click.
    ASSERT_TRUE(testsound::write(file("silence.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2,
                                 std::vector<float>(2 * 110250, 0.0f)));
    const std::string project = file("click.kv3h");
    ASSERT_EQ(kv3("project new " + project), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("silence.wav") + " --armed off"), 0);
    ASSERT_EQ(kv3("project set " + project + " --tempo 120 --signature 4/4 --click-volume 100"), 0);
    ASSERT_EQ(kv3("render " + project + " " + file("plain.wav") + " --depth float"), 0);
    ASSERT_EQ(kv3("render " + project + " " + file("clicked.wav") + " --depth float --with-click"), 0);

    // Without the option the export keeps the click out.
    const Audio plain = readAudio(file("plain.wav"));
    ASSERT_EQ(plain.samples.size(), size_t(2 * 110250));
    for (float v : plain.samples)
        ASSERT_EQ(v, 0.0f);

    // With it: the "Classic" clicks of 1292 frames, from the pack linked into the program, on every 22050th
    // frame, silence between.
    const Audio clicked = readAudio(file("clicked.wav"));
    ASSERT_EQ(clicked.samples.size(), size_t(2 * 110250));
    auto left = [&](int64_t frame) { return clicked.samples[size_t(2 * frame)]; };
    for (int64_t beat = 0; beat < 5; ++beat)
    {
        float peak = 0.0f;
        for (int64_t i = 0; i < 1292; ++i)
            peak = std::max(peak, std::fabs(left(beat * 22050 + i)));
        EXPECT_GT(peak, 0.01f) << beat;
        for (int64_t i = beat * 22050 + 1292; i < std::min<int64_t>((beat + 1) * 22050, 110250); ++i)
            ASSERT_EQ(left(i), 0.0f) << i;
    }
    // Beat 4 starts the second bar: the same accented click as beat 0, unlike beat 1.
    bool sameAsFirst = true;
    bool differsFromSecond = false;
    for (int64_t i = 0; i < 1292; ++i)
    {
        sameAsFirst = sameAsFirst && left(4 * 22050 + i) == left(i);
        differsFromSecond = differsFromSecond || left(22050 + i) != left(i);
    }
    EXPECT_TRUE(sameAsFirst);
    EXPECT_TRUE(differsFromSecond);
}

TEST_F(RenderRig, SessionValuesReachTheEngineAsTheWindowSetsThem)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 4, 200.0));
    Document doc;
    doc.tracks[0]->elementId = doc.addElement(epiPath(file("a.wav")));
    doc.tracks[0]->armed = false;
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
    QuietDelegate delegate;
    Manager manager;
    manager.setDelegate(&delegate);
    manager.setFormat(44100, 256);
    applyDocumentSession(doc, manager, &manager.metronomeNode());
    EXPECT_FLOAT_EQ(manager.speedRatio(), 2.0f);
    // Loop points are session frames, kept in engine frames at half.
    EXPECT_EQ(manager.loopStart(), 10000);
    EXPECT_EQ(manager.loopEnd(), 90000);
    EXPECT_EQ(manager.loopStartFrames(), 5000);
    EXPECT_TRUE(manager.isLoopEnabled());
    EXPECT_FLOAT_EQ(manager.tempo(), 90.0f);
    // The click runs at the session tempo times the ratio, 180 quarter notes a minute, in eighths.
    EXPECT_FLOAT_EQ(manager.metronome().tempo(), 180.0f);
    EXPECT_EQ(manager.metronome().numerator(), 3);
    EXPECT_EQ(manager.metronomeNode().framesPerBeat(), 7350);
    // 60% is (1 - 0.6) * -40 = -16 dB on the metronome's strip.
    EXPECT_FLOAT_EQ(manager.mixerInput(Manager::kMetronomeIndex).volume(), -16.0f);
    EXPECT_FLOAT_EQ(manager.masterVolume(), 6.0f);
    EXPECT_FLOAT_EQ(manager.inputGainDb(), 12.0f);
    // Four seconds of file at a speed ratio of 2 is 176400 session frames.
    EXPECT_EQ(manager.sessionLength(), 176400);
}

TEST_F(RenderRig, ProgressIsDrawnOnATerminalAndNowhereElse)
{
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 6, 220.0));
    const std::string project = file("p.kv3h");
    ASSERT_EQ(kv3("project new " + project), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("a.wav") + " --armed off"), 0);

    // Into files: the finished file's name on stdout, nothing on stderr.
    ASSERT_EQ(kv3("render " + project + " " + file("quiet.wav")), 0);
    EXPECT_EQ(last_.err, "");

    // On a terminal: the bar is redrawn in place and ends at 100%.
    const testsupport::ProgramResult shown =
        testsupport::runProgram(KV3_BIN, "render " + project + " " + file("shown.wav"), true);
    EXPECT_EQ(shown.exit, 0) << shown.out;
    EXPECT_NE(shown.out.find("\rrender ["), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("] 100%"), std::string::npos) << shown.out;
    EXPECT_TRUE(fs::exists(file("shown.wav")));
}

TEST_F(RenderRig, LoopSavedAtHalfSpeedComesBackAsSaved)
{
    // Before, the loop went in after the ratio and was cut to a length in the other unit: end before start.
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100 * 4, 200.0));
    const std::string project = file("p.kv3h");
    ASSERT_EQ(kv3("project new " + project), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("a.wav") +
                  " --armed off --ratio 0.5 --loop 100000:170000 --loop-on on"),
              0);
    Document doc;
    ASSERT_TRUE(doc.load(epiPath(project)));
    QuietDelegate delegate;
    Manager manager;
    manager.setDelegate(&delegate);
    manager.setFormat(44100, 256);
    applyDocumentSession(doc, manager, nullptr);
    EXPECT_TRUE(manager.isLoopEnabled());
    EXPECT_EQ(manager.loopStart(), 100000);
    EXPECT_EQ(manager.loopEnd(), 170000);
    EXPECT_EQ(kv3("render " + project + " " + file("loop.wav") + " --loop"), 0);
    EXPECT_GT(readAudio(file("loop.wav")).samples.size(), 0u);
}

TEST_F(RenderRig, FreezeIntoAReadOnlyFolderFailsAndLeavesTheProject)
{
    // Before, the freeze said yes and saved the project frozen onto a file that was never written.
    const fs::path readOnly = folder_ / "ro";
    fs::create_directory(readOnly);
    ASSERT_TRUE(writeAudio((readOnly / "gtr.wav").string(), 44100, 44100, 220.0));
    const std::string project = file("f.kv3h");
    ASSERT_EQ(kv3("project new " + project), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + (readOnly / "gtr.wav").string()), 0);
    std::ifstream before(project, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(before), {}};
    fs::permissions(readOnly, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                  fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    std::string bin = KV3_BIN;
    if (::geteuid() == 0)
    {
        // Root writes anywhere: the program runs as nobody, from a copy it can reach, over files it owns.
        fs::copy_file(KV3_BIN, file("kv3"));
        fs::copy_file(KV3_TEST_GAIN, file("gain.so"));
        ::setenv("KV3_VPA2_PATH", file("gain.so").c_str(), 1);
        bin = file("kv3");
        for (const auto& entry : fs::recursive_directory_iterator(folder_))
            ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);
        ASSERT_EQ(::chown(folder_.c_str(), 65534, 65534), 0);
    }
    EXPECT_TRUE(testsupport::asUnprivileged(
        [&]
        {
            const testsupport::ProgramResult r =
                testsupport::runProgram(bin, "freeze " + project + " --track 1");
            return r.exit == 1 && r.err.find("gtr_T1_frozen.wav") != std::string::npos;
        }));
    fs::permissions(readOnly, fs::perms::owner_write, fs::perm_options::add);
    std::ifstream after(project, std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(after), {}) == bytes) << "the project changed";
    EXPECT_FALSE(fs::exists(readOnly / "gtr_T1_frozen.wav"));
}

TEST_F(RenderRig, StaleFrozenPathOfAnUnfrozenTrackDeletesNothing)
{
    // Before, loading a project whose unfrozen track kept a frozen path deleted the file at that path.
    ASSERT_TRUE(writeAudio(file("a.wav"), 44100, 44100, 300.0));
    ASSERT_TRUE(writeAudio(file("b.wav"), 44100, 44100, 300.0));
    Document doc;
    doc.tracks[0]->elementId = doc.addElement(epiPath(file("a.wav")));
    doc.tracks[0]->frozenPath = file("b.wav");
    QuietDelegate delegate;
    Manager manager;
    manager.setDelegate(&delegate);
    manager.setFormat(44100, 256);
    doc.applyAll(manager);
    EXPECT_TRUE(fs::exists(file("b.wav")));
    doc.captureAll(manager);
    EXPECT_TRUE(doc.tracks[0]->frozenPath.empty());
}

TEST_F(RenderRig, FilesAtRatesWithoutACommonTableRenderAtTheirPitchAndLength)
{
    // Before, a file whose rate shares too small a divisor with the project's was refused: silence.
    for (const int32_t fileRate : {44056, 31337})
        for (const int32_t projectRate : {44100, 48000})
        {
            const std::string name = std::to_string(fileRate) + "-" + std::to_string(projectRate);
            ASSERT_TRUE(writeAudio(file(name + ".wav"), fileRate, fileRate * 2, 440.0));
            const std::string project = file(name + ".kv3h");
            ASSERT_EQ(kv3("project new " + project + " --rate " + std::to_string(projectRate)), 0);
            ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file(name + ".wav") +
                          " --armed off --fx off"),
                      0);
            ASSERT_EQ(kv3("render " + project + " " + file(name + "-out.wav") + " --depth float"), 0);
            const Audio out = readAudio(file(name + "-out.wav"));
            const auto frames = static_cast<int64_t>(out.samples.size() / 2);
            EXPECT_NEAR(frames, 2 * projectRate, 2) << name;
            // The tone's period over the middle, at the project's rate.
            const std::vector<float> left = out.channel(0);
            EXPECT_NEAR(testsignal::meanFrequency(left.data() + projectRate / 4, frames - projectRate / 2,
                                                  projectRate),
                        440.0, 0.44)
                << name;
        }
}

TEST_F(RenderRig, RenderSaysWhichFileTheResamplerRefuses)
{
    // Before, a file the resampler refused rendered as silence without a word.
    ASSERT_TRUE(writeAudio(file("far.wav"), 9000000, 90000, 1000.0));
    const std::string project = file("p.kv3h");
    ASSERT_EQ(kv3("project new " + project + " --rate 8000"), 0);
    ASSERT_EQ(kv3("project set " + project + " --track 1 --file " + file("far.wav") + " --armed off"), 0);
    EXPECT_EQ(kv3("render " + project + " " + file("out.wav")), 0);
    EXPECT_NE(last_.err.find(file("far.wav") + " can't be played at 8000 Hz"), std::string::npos)
        << last_.err;
}
