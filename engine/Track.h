#pragma once

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileStreaming.h"
#include "audiofiles/AudioPreview.h"
#include "dsp/AudioResampler_DSP.h"
#include "dsp/stretchhq/AudioFxStretchChoice.h"
#include "engine/AudioFileRecorder.h"
#include "engine/TrackControls.h"
#include "engine/graph/AudioAlwaysStereo.h"
#include "engine/graph/AudioCache.h"
#include "engine/graph/AudioDebugger.h"
#include "engine/graph/AudioInputSelector.h"
#include "engine/graph/AudioMute.h"
#include "engine/graph/AudioSwitch.h"
#include "engine/graph/AudioTemporary.h"
#include "engine/graph/ContiguousReader.h"
#include "engine/graph/TrackSource.h"
#include "plugin/AudioFxKV3Unit.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

/**
 * One of the four lanes: plays one file with its own speed and pitch through its own effect unit, or
 * takes the live input through that same unit and records it, or plays a frozen rendering of itself.
 *
 * A fixed chain of nodes, built once in the constructor; what changes is the position of six switches
 * (rewire). A file's way: file, resampler to the device rate, forced stereo, history, stretch, effect,
 * output. The live input's way: input store, left/right selection, effect, output.
 *
 * Threads: provide and processInput run on the audio thread; everything else on the interface thread.
 * A command is a single atomic write. A change that takes more than one write (closing a file, ending
 * a take) first takes the track out of the path with one write and then waits for the audio thread to
 * leave the track (a handshake on busy_, bounded, which never makes the audio thread wait).
 */
class Track : public TrackSource, public TrackControls
{
public:
    /** length() while a take grows: one hour at 44.1 kHz, whatever the rate, keeps the session open. */
    static constexpr int64_t kRecordingLength = 158760000;

    /** Why the last take could not be kept as a new file. */
    enum class TakeError
    {
        none,
        /** The recorder could not create the temporary file. */
        recorderOpen,
        /** The temporary file could not be read back. */
        takeUnreadable,
        /** The take holds no frame (stopped before the punch-in). */
        takeEmpty,
        /** The old file could not be opened. */
        oldUnreadable,
        /** The new file could not be created. */
        newUnwritable,
        /** Writing the new file failed part of the way. */
        writeFailed,
        /**
         * The new file was made, but the disk fell behind during the take and whole blocks of it were
         * lost, or a buffer could not be written.
         */
        incomplete,
    };

    /** Builds and connects the chain. */
    Track();
    ~Track() override;
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    // AudioSource
    /** The file's (or frozen file's) audio, unless the track is armed, recording or empty. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Answers false: a track is pulled by provide. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    /** Stores the format and prepares every node of the chain. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    // TrackSource
    /**
     * The live pass: when armed, stores the input, hands it to the recorder when a take runs inside the
     * punch points, and delivers the live chain's output.
     */
    // [audio thread]
    bool processInput(AudioData& input, AudioData& output) override;
    // [ui thread]
    void setPlaying(bool playing) override;
    bool isPlaying() const { return playing_.load(std::memory_order_relaxed); }
    /** In engine frames: the resampled file's length over speed and speed ratio. */
    // [ui thread]
    int64_t length() override;
    int64_t offset() override { return trackOffset_; }
    /** Tracks have no offset; kept for the project's field. */
    void setOffset(int64_t frames) override { static_cast<void>(frames); }
    // [ui thread]
    void setSpeedRatio(float ratio) override;

    // TrackControls
    // [ui thread]
    void beginTake(const epiPath& path, int64_t punchIn, int64_t punchOut) override;
    // [ui thread]
    bool setRecording(bool on) override;
    bool isRecording() const override { return recording_.load(std::memory_order_relaxed); }
    // [ui thread]
    void setPitch(float semitones) override;
    float pitch() const override { return pitchSemitones_; }
    epiText pitchText() const override;
    // [ui thread]
    void setSpeed(float speed) override;
    /** The speed and pitch engine; a change while playing takes effect at the next locate or loop. */
    // [ui thread]
    void setStretchQuality(StretchQuality quality) { stretch_.setQuality(quality); }
    StretchQuality stretchQuality() const { return stretch_.quality(); }
    float speed() const override { return speedValue_; }
    epiText speedText() const override;
    // [ui thread]
    void setEffectLoaded(bool on) override;
    bool isEffectLoaded() const override { return effectLoaded_; }
    // [ui thread]
    void setEffectEnabled(bool on) override;
    bool isEffectEnabled() const override { return effectEnabled_; }
    // [ui thread]
    void setFrozen(bool on) override;
    bool isFrozen() const override { return frozen_; }
    // [ui thread]
    void loadFrozen(const epiPath& path) override;
    epiPath frozenPathCopy() const override { return frozenPath_; }
    // [ui thread]
    void setEffectState(epiFileDump& state) override;
    // [ui thread]
    void effectState(epiFileDump& state) override;
    // [ui thread]
    void setInput(int32_t choice) override;
    int32_t input() const override { return inputChoice_.load(std::memory_order_relaxed); }
    // [ui thread]
    void setArmed(bool on) override;
    bool isArmed() const override { return armed_.load(std::memory_order_relaxed); }
    AudioPreview& audioPreview() override { return preview_; }

    /**
     * Opens a file to play, closing the one before. A file that can't be opened leaves the track
     * silent (isLoaded() false).
     * @return whether the file opened
     */
    // [ui thread]
    bool load(const epiPath& path);
    /** Closes the files; the track goes silent. Waits for the audio thread to leave the track first. */
    // [ui thread]
    void unload();
    /**
     * Reads the file by the calling thread (on) rather than through the streaming thread (off), for
     * offline rendering, which must not lose a frame. Does not rewire: the caller's next rewire moves
     * the switch.
     */
    // [ui thread, device stopped]
    void setDirectRead(bool on);
    bool isDirectRead() const { return directRead_; }
    /**
     * Asked before unfreezing deletes the frozen file: whether another track plays that path, as its
     * file or its frozen file. The Manager sets it for its tracks.
     */
    // [ui thread]
    void setPathInUse(std::function<bool(const epiPath&)> inUse) { pathInUse_ = std::move(inUse); }
    /** Sets the six switches from the flags. */
    // [ui thread]
    void rewire();

    bool isLoaded() const { return fileLoaded_.load(std::memory_order_relaxed); }
    /**
     * Why the file, opened, can't be played at the track's rate (the resampler refused the pair), in a
     * few words for a message; null when it plays.
     */
    // [ui thread]
    const char* playRefusal();
    const epiPath& filePath() const { return filePath_; }
    const epiPath& takePath() const { return takePath_; }
    const epiPath& recordPath() const { return recordPath_; }
    int64_t punchIn() const { return punchIn_.load(std::memory_order_relaxed); }
    int64_t punchOut() const { return punchOut_.load(std::memory_order_relaxed); }
    /** Position of the first recorded block of the take, engine frames. */
    int64_t takeStart() const { return takeStart_.load(std::memory_order_relaxed); }
    /** What went wrong with the last take; none after a good one. */
    TakeError takeError() const { return takeError_; }
    /** The last take's failure for the user, naming the file concerned; empty after a good take. */
    const std::string& takeErrorText() const { return takeErrorText_; }
    uint32_t sampleRate() const { return sampleRate_; }
    uint32_t blockSize() const { return blockSize_; }

    /** The effect unit, which the Manager gives MIDI, ticks and the editor's parent. */
    AudioFxKV3Unit& effect() { return effect_; }
    AudioFileRecorder& recorder() { return recorder_; }
    AudioFxStretchChoice& stretch() { return stretch_; }
    /** The switches, for inspection of the routing. */
    const AudioSwitch& effectInputSwitch() const { return effectInputSwitch_; }
    const AudioSwitchFeed& effectFeed() const { return effectFeed_; }
    const AudioSwitch& sourceSwitch() const { return sourceSwitch_; }
    const AudioSwitch& monitorSwitch() const { return monitorSwitch_; }
    const AudioSwitch& outputSwitch() const { return outputSwitch_; }
    const AudioSwitch& resamplerSwitch() const { return resamplerSwitch_; }

protected:
    /** Waits until no call of the audio thread is inside the track (at most about a second). */
    // [ui thread]
    void waitIdle();
    void applySpeed();
    void applyPitch();

private:
    bool merge();
    bool failTake(TakeError error, const std::string& text);

    // Nodes and fields in the order of the chain's description.
    AudioFileGuessSafe memoryFile_;
    AudioFileStreaming streamFile_;
    AudioAlwaysStereo fileStereo_;
    // Read by the audio thread in provide with acquire: load() opens the file, then stores the flag with
    // release. The files behind it are closed only after waitIdle.
    std::atomic<bool> fileLoaded_{false};
    AudioFxStretchChoice stretch_;
    AudioFxKV3Unit effect_;
    AudioFileRecorder recorder_;
    // Read by the audio thread in the live pass. Set with release after the recorder has opened, read
    // with acquire, so that the recorder's fresh state is seen; cleared before the busy_ handshake, so that
    // once setRecording has seen busy_ false, write no longer runs.
    std::atomic<bool> recording_{false};
    AudioTemporary inputStore_;
    AudioSwitch monitorSwitch_;
    float pitchSemitones_ = 0.0f;
    float speedValue_ = 1.0f;
    std::atomic<bool> playing_{false}; // relaxed: a command
    AudioMute mute_;
    bool effectEnabled_ = false;
    AudioSwitchFeed effectFeed_;
    AudioSwitch effectInputSwitch_;
    epiPath filePath_;
    epiPath recordPath_;
    bool frozen_ = false;
    AudioSwitch outputSwitch_;
    AudioAlwaysStereo frozenStereo_;
    AudioFileStreaming frozenFile_;
    std::atomic<bool> armed_{false};      // relaxed: a command
    std::atomic<int32_t> inputChoice_{2}; // relaxed: a command
    AudioInputSelector inputSelector_;
    float speedRatio_ = 1.0f;
    AudioSwitch sourceSwitch_;
    AudioSwitch resamplerSwitch_;
    bool directRead_ = false;
    int64_t trackOffset_ = 0;
    AudioResampler_DSP streamResampler_;
    AudioResampler_DSP memoryResampler_;
    AudioPreview preview_;
    // Punch points in engine frames, set by beginTake before recording_ is; relaxed, published by it.
    std::atomic<int64_t> punchIn_{0};
    std::atomic<int64_t> punchOut_{0};
    epiPath takePath_;
    // Written by the audio thread during a take, read after setRecording(false) has seen busy_ clear.
    std::atomic<bool> waitingFirstBlock_{false};
    std::atomic<int64_t> takeStart_{0};
    uint32_t blockSize_ = 0;
    bool effectLoaded_ = false;
    bool effectRunning_ = false;
    uint32_t sampleRate_ = 44100;
    epiPath frozenPath_;
    ContiguousReader reader_;
    // Diagnostic fittings, connected to nothing.
    AudioDebugger debugger_;
    AudioCache cache_;

    // True while the audio thread is inside provide or processInput. Stored seq_cst on entry and release
    // on exit; the interface thread writes a flag that takes the track out of the path (seq_cst) and then
    // reads this one (seq_cst): either the audio thread saw the new flag, or the interface sees it busy
    // and waits for the exit.
    std::atomic<bool> busy_{false};
    TakeError takeError_ = TakeError::none;
    std::string takeErrorText_;
    std::function<bool(const epiPath&)> pathInUse_;
};
