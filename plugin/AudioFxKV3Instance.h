#pragma once

#include "plugin/VPA2.h"

#include <atomic>
#include <cstdint>

class AudioFxKV3Plugin;
class epiFileDump;

/**
 * One live instance of the library, made and destroyed by an effect unit on the interface thread.
 * The audio thread only calls `process` and `sendMidiEvents`, and only while `active`.
 */
class AudioFxKV3Instance
{
public:
    /** Native handle of a window for the editor (an X11 window id); 0 for none. */
    using WindowHandle = std::uintptr_t;

    explicit AudioFxKV3Instance(AudioFxKV3Plugin* plugin);
    AudioFxKV3Instance(const AudioFxKV3Instance&) = delete;
    AudioFxKV3Instance& operator=(const AudioFxKV3Instance&) = delete;
    /** Closes the editor, stops, terminates and releases the instance. */
    virtual ~AudioFxKV3Instance();

    /**
     * `prepare` on the library, then `createInstance`; when that gives one, two channels each way
     * and `initialise`.
     * @returns whether there is an instance
     */
    // [ui thread]
    bool create();
    /** Block size (with the largest MIDI batch), rate, channels, `start`. */
    // [ui thread]
    void startInstance(std::uint32_t sampleRate, std::uint32_t blockSize, std::int32_t channels);
    /** `stop` if started. */
    // [ui thread]
    void stopInstance();
    /** Restores a state; nothing without an instance or without bytes. */
    // [ui thread]
    void setState(const void* data, std::uint32_t size);
    /**
     * Writes the library's present state into `file` (emptied first).
     * @returns whether the library gave any
     */
    // [ui thread]
    bool captureState(epiFileDump& file);

    /** Runs one block; false without an instance. `frames` is at most the block size. */
    // [audio thread]
    bool process(float* const* inputs, float* const* outputs, std::int32_t frames);
    /**
     * Sends `count` events given as pairs of words (position, message), in batches of at most
     * `NV::VPA2::kMaxMidiBatch`.
     */
    // [audio thread]
    void sendMidiEvents(const std::uint32_t* words, std::int32_t count);

    /** Opens the editor in `parent` (closing it first if open). */
    // [ui thread]
    void openEditor(WindowHandle parent);
    // [ui thread]
    void closeEditor();

    bool hasInstance() const { return instance_ != nullptr; }
    bool isStarted() const { return started_; }
    bool isEditorOpen() const { return editorOpen_; }
    // [any thread]
    bool isActive() const { return active_.load(std::memory_order_acquire); }
    /** Release: everything made before is seen by the audio thread that finds it active. */
    // [ui thread]
    void setActive(bool active) { active_.store(active, std::memory_order_release); }

private:
    NV::VPA2::InstanceTable* instance_ = nullptr;
    NV::VPA2::EditorTable* editor_ = nullptr;
    bool editorOpen_ = false;
    AudioFxKV3Plugin* plugin_ = nullptr;
    bool started_ = false;
    std::atomic<bool> active_{false};
    /** The parent handle lives here while the editor is open: the library is given its address. */
    WindowHandle parent_ = 0;
    /** A batch of MIDI, part of the instance so that sending never allocates. */
    NV::VPA2::MidiRecord batch_[NV::VPA2::kMaxMidiBatch] = {};
};
