#pragma once

#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "engine/graph/MidiEvent.h"
#include "epi/epiFileDump.h"
#include "plugin/AudioFxKV3Instance.h"

#include <atomic>
#include <cstdint>

class AudioFxKV3Manager;

/**
 * The effect node of one track: runs the audio of its source through its own instance of the
 * library, or passes it through while the effect is off. Off, it is cheap: no instance, only the
 * library's saved state kept as bytes (`userState`), so a project that never switched a track's
 * effect on keeps that state exactly as it was loaded.
 *
 * Switching on and off happens on the interface thread while the engine runs. The audio thread
 * reads the instance pointer and the instance's `active` flag at the top of each block; switching
 * off waits until the engine has counted three more blocks (`noteTick`) or about a second has passed
 * before it destroys the instance.
 */
class AudioFxKV3Unit : public AudioSource
{
public:
    using WindowHandle = AudioFxKV3Instance::WindowHandle;

    AudioFxKV3Unit() = default;
    AudioFxKV3Unit(const AudioFxKV3Unit&) = delete;
    AudioFxKV3Unit& operator=(const AudioFxKV3Unit&) = delete;
    /** Switches the effect off. */
    ~AudioFxKV3Unit();

    // [ui thread, device stopped]
    void setSource(AudioSource* source) { source_ = source; }
    // [ui thread, device stopped]
    void setManager(AudioFxKV3Manager* manager) { manager_ = manager; }

    // [audio thread]
    bool provide(AudioData& request) override;
    // [audio thread]
    bool read(AudioData& into) override;
    std::int32_t channels() override { return 2; }
    /** Sizes both buffers for `blockSize` frames, and restarts a running instance at the new format. */
    // [ui thread, device stopped]
    void prepare(std::uint32_t sampleRate, std::uint32_t blockSize) override;

    /**
     * Makes or destroys the instance (see the class comment). Switching on does nothing when no
     * library is loaded; switching off waits for the audio thread, one to two seconds at most.
     */
    // [ui thread]
    void setEnabled(bool enabled);
    bool isEnabled() const { return instance_.load(std::memory_order_acquire) != nullptr; }
    /** Whether the effect is on and the library gave it an instance. */
    // [ui thread]
    bool hasInstance() const
    {
        const AudioFxKV3Instance* instance = instance_.load(std::memory_order_acquire);
        return instance != nullptr && instance->hasInstance();
    }

    /** Gives the editor its parent window; does nothing while a parent is set. */
    // [ui thread]
    void setEditorParent(WindowHandle parent);
    // [ui thread]
    void closeEditor();
    WindowHandle editorParent() const { return editorParent_; }

    /**
     * Hands one block's MIDI to the instance, `count` events given as pairs of words (position,
     * message); dropped while the effect is off.
     */
    // [audio thread]
    void forwardMidi(const std::uint32_t* words, std::int32_t count);
    // [audio thread]
    void forwardMidi(const MidiEventBlock& block);
    /** Called once for every engine block: the count that switching off waits on. */
    // [audio thread]
    void noteTick() { tick_.fetch_add(1, std::memory_order_release); }

    /** Restores a saved state (empty means the default). */
    // [ui thread]
    void loadState(const epiFileDump& file);
    /** Writes the present state into `file` and remembers it as the last stored. */
    // [ui thread]
    void saveState(epiFileDump& file);
    /**
     * Whether the library's program (the element "Program" of its state) differs from the one
     * last stored or loaded.
     */
    // [ui thread]
    bool isStateChanged();

    /** The state a new instance starts from before the user's own. */
    epiFileDump& defaultState() { return defaultState_; }
    const epiFileDump& userState() const { return userState_; }
    std::uint32_t tick() const { return tick_.load(std::memory_order_acquire); }

private:
    /** Runs the source into the input buffer and, when active, the instance into the output. */
    AudioData* run(AudioData& request, bool zeroOnFailure);
    void enable();
    void disable();

    /** The instance, null while off. Release on publish, acquire on the audio thread. */
    std::atomic<AudioFxKV3Instance*> instance_{nullptr};
    AudioBuffer input_;
    AudioBuffer output_;
    AudioSource* source_ = nullptr;
    AudioFxKV3Manager* manager_ = nullptr;
    epiFileDump defaultState_;
    WindowHandle editorParent_ = 0;
    epiFileDump userState_;
    std::uint32_t sampleRate_ = 0;
    std::uint32_t blockSize_ = 0;
    /** Silence in and scratch out for the warm-up of a new instance, apart from the engine's. */
    AudioBuffer warmUp_;
    AudioBuffer warmUpOut_;
    /** Blocks counted by the engine; release/acquire so that a grown count means the block is over. */
    std::atomic<std::uint32_t> tick_{0};
};
