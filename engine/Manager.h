#pragma once

#include "engine/Exporter.h"
#include "engine/ManagerDelegate.h"
#include "engine/Metronome.h"
#include "engine/MetronomeDelegate.h"
#include "engine/Track.h"
#include "engine/TrackControls.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioMixer.h"
#include "engine/graph/MidiEvent.h"
#include "engine/graph/TrackSource.h"
#include "epi/epiPath.h"
#include "epi/epiText.h"
#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Messages.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

/**
 * The centre of the engine: holds the transport (position, playing, loop, end, speed ratio), the mixer
 * and the sources on its strips, and is the one engine object the device's block callback enters and
 * the interface talks to.
 *
 * Two units of position exist. Engine frames are what the transport counts and what the graph sees in
 * AudioData::position: one engine frame passes per output frame. Session frames are frames of the
 * session at normal speed, the unit of the interface, of track lengths and of the project file: a
 * session frame count is an engine frame count multiplied by the speed ratio, truncated towards zero.
 *
 * Threads: processBlock runs on the device's thread, everything else on the interface thread. There is
 * no lock. Commands are single atomic writes that processBlock reads at a defined point of the block;
 * flags the other way (end reached, auto-record start, plug-in changed) are set by the audio thread and
 * taken by poll. A change that needs more than one write takes the node out of the path, calls
 * waitForBlocks, and then changes it.
 */
class Manager : public AudioFxKV3ManagerDelegate, public MetronomeDelegate
{
public:
    /** Strips of the mixer: the four tracks, then the metronome. */
    static constexpr int32_t kTracks = 4;
    static constexpr int32_t kMetronomeIndex = AudioMixer::kMetronomeInput;
    /** Length of a session whose tracks are all empty, in session frames (ten seconds at 44.1 kHz). */
    static constexpr int64_t kEmptySessionLength = 441000;
    /** Input gain a new Manager starts with. */
    static constexpr float kDefaultInputGainDb = 6.0f;
    /** Linear peak of the input above which auto-record starts the transport: 10^-1. */
    static constexpr float kAutoRecordThreshold = 0.1f;
    /** Blocks waitForBlocks waits for. */
    static constexpr uint32_t kWaitBlocks = 3;

    /**
     * Loads the effect library (found as the plug-in host finds it), gives every track's effect unit the
     * effect manager, puts the four tracks on strips 0 to 3, marks the metronome's strip exempt from solo
     * at 0 dB; the transport starts stopped at 0.
     */
    Manager();
    ~Manager() override;
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /**
     * Puts a track (index 0 to 3) or the metronome (index 4) on its mixer strip and tells it the
     * transport's state. Not owned. The Manager drives exactly these sources; strips 0 to 3 start with
     * the Manager's own tracks, which the track commands below always address.
     */
    // [ui thread, device stopped]
    void setTrackSource(int32_t index, TrackSource* source);
    /** The source on strip index, null if none. */
    TrackSource* trackSource(int32_t index) const;

    /**
     * One block of the device: takes a pending locate, decides end and loop, stamps the position on
     * input and output, clears output, applies the input gain to input (in place) and clamps it, runs
     * the mixer's live pass and its playback pass into output, then advances the position while playing
     * and watches the input for auto-record.
     * @param input the device's input, two channels; scaled in place
     * @param output the device's output, two channels of the same frames
     * @param midi the MIDI that arrived since the last block
     */
    // [audio thread]
    void processBlock(AudioData& input, AudioData& output, MidiEventBlock& midi);

    /**
     * The device's format. With the loop on and a new rate, the loop points are scaled to it. Then the
     * sources and the mixer are prepared.
     */
    // [ui thread, device stopped]
    void setFormat(uint32_t sampleRate, uint32_t blockSize);
    uint32_t sampleRate() const { return sampleRate_; }
    uint32_t blockSize() const { return blockSize_; }

    /** Starts the transport and tells the tracks and the metronome, in that order. */
    // [ui thread]
    void start();
    /** Stops the transport; the position stays. */
    // [ui thread]
    void stop();
    bool isPlaying() const { return playing_.load(std::memory_order_relaxed); }

    /** Asks for a jump to a session position, taken at the head of the next block. Negative gives 0. */
    // [ui thread]
    void locate(int64_t sessionFrames);
    /** The pending locate if one waits, else the position, in session frames. */
    // [ui thread]
    int64_t sessionPosition() const;
    /** The transport position in engine frames, as the last block left it. */
    // [any thread]
    int64_t enginePosition() const { return position_.load(std::memory_order_relaxed); }

    /** Loop points in session frames; stored in engine frames. */
    // [ui thread]
    void setLoopStart(int64_t sessionFrames);
    int64_t loopStart() const;
    // [ui thread]
    void setLoopEnd(int64_t sessionFrames);
    int64_t loopEnd() const;
    /** Loop points as the audio thread uses them, in engine frames. */
    int64_t loopStartFrames() const { return loopStart_.load(std::memory_order_relaxed); }
    int64_t loopEndFrames() const { return loopEnd_.load(std::memory_order_relaxed); }
    /**
     * Switches the loop. Switching it on first measures the session; an empty or reversed loop becomes
     * the whole session, and a loop end beyond the session is cut to it.
     */
    // [ui thread]
    void setLoopEnabled(bool on);
    bool isLoopEnabled() const { return loopEnabled_.load(std::memory_order_relaxed); }

    /**
     * Sets the speed ratio (session frames per engine frame; the interface offers 0.5, 1 and 2). The loop
     * points keep their session positions; the position itself is not converted: the caller follows
     * with a locate, a setTempo and a sessionLength. A ratio that is not positive is ignored.
     */
    // [ui thread]
    void setSpeedRatio(float ratio);
    float speedRatio() const { return speedRatio_.load(std::memory_order_relaxed); }

    /**
     * The longest track in session frames, kEmptySessionLength when all are empty. Also sets the end
     * of the session from it.
     */
    // [ui thread]
    int64_t sessionLength();
    /** Clears the end position; the next sessionLength sets it again. */
    // [ui thread]
    void clearEnd();
    /** End of the session in engine frames. */
    int64_t endPosition() const { return endPosition_.load(std::memory_order_relaxed); }

    /** A take runs: the transport then stops at the loop end rather than wrapping. */
    // [ui thread]
    void setRecording(bool on) { recording_.store(on, std::memory_order_relaxed); }
    bool isRecording() const { return recording_.load(std::memory_order_relaxed); }

    /** Arms or disarms auto-record; either way a new arming starts from untripped. */
    // [ui thread]
    void setAutoRecord(bool on);
    bool isAutoRecord() const { return autoRecordArmed_.load(std::memory_order_relaxed); }

    /** Beats per minute of the session, before the speed ratio. */
    // [ui thread]
    void setTempo(float bpm) { tempo_.store(bpm, std::memory_order_relaxed); }
    float tempo() const { return tempo_.load(std::memory_order_relaxed); }

    /**
     * Waits until the audio thread has run three more blocks, or until the wall clock in whole seconds
     * has passed the second after the one it began in, so a stopped device can't hang it (1 to 2
     * seconds). Sleeps 10 ms at a time.
     */
    // [ui thread]
    void waitForBlocks();
    /** Blocks processed since construction; wraps. */
    // [any thread]
    uint32_t blockCount() const { return blockCount_.load(std::memory_order_acquire); }

    /** The controls of strip index, 0 to 4. */
    // [ui thread]
    MixerInputControls& mixerInput(int32_t index) { return mixer_.input(index); }
    // [ui thread]
    void setSolo(int32_t index, bool on) { mixer_.setSolo(index, on); }
    // [ui thread]
    void setMasterVolume(float dB) { mixer_.setMaster(dB); }
    float masterVolume() const { return mixer_.master(); }
    // [ui thread]
    const epiText& masterVolumeText() { return mixer_.masterText(); }
    AudioMixer& mixer() { return mixer_; }

    /** The metronome on strip 4. */
    // [ui thread]
    MetronomeControls& metronome() { return metronome_; }
    Metronome& metronomeNode() { return metronome_; }
    /**
     * Replaces a click of the metronome: index 0 the ordinary beat, 1 the first beat of a bar. Only with
     * the metronome's strip muted, the metronome disabled and waitForBlocks passed.
     */
    // [ui thread]
    void loadClick(int32_t index, const AudioBuffer& samples) { metronome_.loadClick(index == 1, samples); }

    /**
     * Suspends the device and starts rendering the session (or its loop, in session frames) into path
     * at the Manager's rate; poll renders it a second at a time. The progress panel gets "Rendering
     * session".
     * @param container, bitDepth values of AudioFileFormats
     */
    // [ui thread]
    void startExport(const epiPath& path, int32_t container, int32_t bitDepth, bool loopOnly);
    /**
     * Off: the track plays its file through its effect again and its frozen file is deleted. On: the
     * device is suspended and a job renders the track through its effect into its "_frozen" file, then
     * freezes it.
     */
    // [ui thread]
    void setTrackFrozen(int32_t track, bool on);

    /** The controls of track 0 to 3. */
    // [ui thread]
    TrackControls& track(int32_t index) { return tracks_[clampTrack(index)]; }
    /** Track 0 to 3 itself, for the offline jobs and the device front. */
    Track& trackNode(int32_t index) { return tracks_[clampTrack(index)]; }
    /** The effect manager that the four units share. */
    AudioFxKV3Manager& effects() { return effects_; }

    /**
     * Has the track load a file and asks for a locate to 0. The track leaves the path while its files
     * change.
     * @return whether the file opened; a track whose file failed stays silent
     */
    // [ui thread]
    bool loadTrack(int32_t track, const epiPath& path);
    /** Closes the track's files; it goes silent. */
    // [ui thread]
    void unloadTrack(int32_t track);
    /**
     * Begins a take on the track into path: the loop points are its punch points when the loop is on
     * (none otherwise), and the recorder opens.
     * @return false when the recorder could not open; the track's takeErrorText says why
     */
    // [ui thread]
    bool startTake(int32_t track, const epiPath& path);
    /**
     * The device's round trip, which each track's recorder takes off the start of the timeline.
     * @param frames input plus output latency
     */
    // [ui thread, device stopped]
    void setRecordLatency(int64_t frames, int32_t unused);

    /** The native window in which effect editors open (0 for none). */
    // [ui thread]
    void setEditorParent(AudioFxKV3Unit::WindowHandle parent) { editorParent_ = parent; }
    /** Shows the editor of a track's effect in the parent, closing the one shown before. */
    // [ui thread]
    void showEditor(int32_t track);
    /** Closes the editor shown, if any. */
    // [ui thread]
    void hideEditor();
    /** The track whose editor is shown, -1 for none. */
    int32_t editorTrack() const { return editorTrack_; }
    /** Whether some track's plug-in state differs from the state last stored. */
    // [ui thread]
    bool anyEffectChanged();

    /** The track's length in session frames; 0 for an empty strip. */
    // [ui thread]
    int64_t trackLength(int32_t track);
    /** The track's offset in session frames. */
    // [ui thread]
    int64_t trackOffset(int32_t track);
    /** Converts to engine frames and hands it to the track. */
    // [ui thread]
    void setTrackOffset(int32_t track, int64_t sessionFrames);

    /** Input gain in dB (the interface offers 0 to 24); the linear factor is 10^(dB/20). */
    // [ui thread]
    void setInputGain(float dB);
    float inputGainDb() const { return inputGainDb_; }
    /** The linear input factor the audio thread applies. */
    float inputGain() const { return inputGain_.load(std::memory_order_relaxed); }
    /** The input gain as text, e.g. "+6.0 dB"; valid until the next call. */
    // [ui thread]
    const epiText& inputGainText();

    // [ui thread]
    void setDelegate(ManagerDelegate* delegate) { delegate_.store(delegate, std::memory_order_release); }
    ManagerDelegate* delegate() const { return delegate_.load(std::memory_order_acquire); }

    /**
     * Runs an offline job: the device is suspended through the delegate, then makeJob builds the job (so
     * that its set-up finds the graph to itself), the job is kept, and the progress panel gets its title
     * and first message. poll then renders it slice by slice. A job that is already running is cancelled
     * first; when makeJob gives nothing the device is resumed at once.
     */
    // [ui thread]
    void startTask(const std::function<std::unique_ptr<Exporter>()>& makeJob, const epiText& title,
                   const epiText& message);
    /** Cancels the running job, if any, and resumes the device. */
    // [ui thread]
    void cancelTask();
    bool hasTask() const { return task_ != nullptr; }

    /**
     * The periodic step of the interface: passes on a plug-in change, renders a slice of the running job
     * (a job that fails is reported and cancelled, which undoes its set-up and removes its file),
     * reports the end reached, and starts the transport for auto-record.
     */
    // [ui thread]
    void poll();

    /** A plug-in changed its state; reported by the next poll. */
    // [any thread]
    void pluginChanged() override { pluginChanged_.store(true, std::memory_order_relaxed); }

    /** The metronome's beat, passed on to the delegate at once. */
    // [audio thread]
    void beat() override;

private:
    static int32_t clampTrack(int32_t index) { return std::clamp(index, 0, kTracks - 1); }
    void propagatePlaying(bool playing);
    void pumpTask();
    void finishTask();
    int64_t toEngine(int64_t sessionFrames) const;
    int64_t toSession(int64_t engineFrames) const;

    // Declared before the mixer so that they outlive it; the units hold the effect manager's library.
    AudioFxKV3Manager effects_;
    Track tracks_[kTracks];
    Metronome metronome_;
    AudioMixer mixer_;
    int32_t editorTrack_ = -1;                      // interface thread only
    AudioFxKV3Unit::WindowHandle editorParent_ = 0; // interface thread only
    // The sources of strips 0 to 4, not owned; wired with the device stopped.
    TrackSource* sources_[AudioMixer::kInputs] = {};

    // Commands from the interface, read by the audio thread at the head of a block. Relaxed throughout:
    // each is a value of its own, and a block that sees one change before another is accepted.
    std::atomic<bool> playing_{false};
    std::atomic<float> speedRatio_{1.0f};
    std::atomic<ManagerDelegate*> delegate_{nullptr}; // release/acquire: publishes the delegate object
    std::unique_ptr<Exporter> task_;                  // interface thread only
    std::atomic<int64_t> position_{0};                // written by the audio thread only
    std::atomic<int64_t> pendingLocate_{-1};          // mailbox; -1 is empty
    std::atomic<int64_t> loopStart_{0};
    std::atomic<int64_t> loopEnd_{0};
    std::atomic<bool> loopEnabled_{false};
    std::atomic<int64_t> endPosition_{0};
    // Always equal to the speed ratio; the one every position conversion uses.
    std::atomic<float> positionRatio_{1.0f};
    float inputGainDb_ = kDefaultInputGainDb; // interface thread only
    std::atomic<float> inputGain_;
    epiText inputGainText_;
    std::atomic<bool> recording_{false};
    // Flags from the audio thread, taken by poll. Relaxed: they carry no data with them.
    std::atomic<bool> endReached_{false};
    std::atomic<bool> autoRecordArmed_{false};
    std::atomic<bool> autoRecordTripped_{false};
    std::atomic<bool> autoRecordStart_{false};
    std::atomic<bool> pluginChanged_{false};
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    float autoRecordThreshold_ = kAutoRecordThreshold;
    std::atomic<float> tempo_{120.0f};
    // Release on the audio thread's increment, acquire in waitForBlocks: whatever a block did is visible
    // to the interface thread once it has seen a later count.
    std::atomic<uint32_t> blockCount_{0};
};
