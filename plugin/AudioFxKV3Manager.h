#pragma once

#include "plugin/AudioFxKV3Plugin.h"

#include <memory>

/**
 * Owns the one loaded library that every track's effect unit makes its instance from, and passes
 * the host's time and the device's stops and resumptions on to it.
 */
class AudioFxKV3Manager
{
public:
    /** Finds and loads the product's library; a failure is told through `sink` (or the default). */
    explicit AudioFxKV3Manager(AudioFxKV3MessageSink* sink = nullptr);
    /** Loads the library at `path`. */
    AudioFxKV3Manager(AudioFxKV3MessageSink* sink, const epiText& path);
    AudioFxKV3Manager(const AudioFxKV3Manager&) = delete;
    AudioFxKV3Manager& operator=(const AudioFxKV3Manager&) = delete;
    virtual ~AudioFxKV3Manager();

    /** Tempo in BPM and the two transport values the library asks for. */
    // [audio thread]
    void setTransport(float tempo, double a, double b);
    void setDelegate(AudioFxKV3ManagerDelegate* delegate);
    /** The device has stopped; does nothing without a loaded library. */
    // [ui thread]
    void audioSuspended();
    /** The device runs again. */
    // [ui thread]
    void audioResumed();

    AudioFxKV3Plugin& plugin() { return *plugin_; }
    /** Whether a library is loaded and has shaken hands. */
    bool isLoaded() const { return plugin_->plugin() != nullptr; }

private:
    std::unique_ptr<AudioFxKV3Plugin> plugin_;
};
