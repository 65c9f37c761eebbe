#pragma once

#include "epi/epiText.h"
#include "plugin/AudioFxKV3HostAudioDummy.h"
#include "plugin/AudioFxKV3Messages.h"
#include "plugin/VPA2Host.h"

#include <atomic>
#include <string>
#include <vector>

/**
 * The loaded amplifier library. Construction finds the library, loads it and runs the handshake;
 * every failure tells the user once, through the message sink, and leaves `plugin()` null, in which
 * case the program runs on without the engine and the effect units pass audio through.
 *
 * The library is found by the value "VPA2Path" of the settings store; when that is missing, by the
 * environment variable KV3_VPA2_PATH, then by the library installed with the program
 * (`../lib/korvalind3/` beside the program's folder), then by the one in the build tree.
 */
class AudioFxKV3Plugin : public NV::VPA2::Host
{
public:
    /** The product whose settings name the library. */
    static constexpr const char* kProductName = "Korvalind 3";
    /** The file name of the library built and installed with the program. */
    static constexpr const char* kLibraryName = "kv3refamp.so";

    /**
     * Finds and loads the library of the product.
     * @param sink where a failure is told; null uses the default sink
     */
    explicit AudioFxKV3Plugin(AudioFxKV3MessageSink* sink = nullptr);
    /** Loads the library at `path`, without looking it up. */
    AudioFxKV3Plugin(AudioFxKV3MessageSink* sink, const epiText& path);
    ~AudioFxKV3Plugin() override;

    /**
     * The sink used when a plug-in is made without one (the window's message box, or kv3's printer).
     * Null keeps the messages only in `lastTitle` and `lastText`.
     */
    // [ui thread]
    static void setDefaultSink(AudioFxKV3MessageSink* sink);

    /**
     * The folders searched for `kLibraryName` when neither the store nor the environment name a
     * library. By default: the program's `../lib/korvalind3/`, then the build tree's plug-in folder.
     */
    static std::vector<std::string> defaultFolders();
    /** Replaces the folders searched (tests empty it to see the store's error). */
    static void setSearchFolders(std::vector<std::string> folders);

    /**
     * The library the product's settings name, with the fall-backs above.
     * @returns false when none is found
     */
    static bool findLibrary(const char* productName, epiText& path);

    // [any thread]
    bool getTimeInfo(float* tempo, double* a, double* b) override;
    std::int32_t spare4(std::uint32_t) override { return 0; }
    std::int32_t spare5(std::uint32_t) override { return 0; }
    std::int32_t spare6(std::uint32_t, float, float) override { return 0; }
    std::int32_t spare8(std::uint32_t, std::uint32_t, std::uint32_t) override { return 0; }
    std::int32_t spare9() override { return 0; }
    // [any thread]
    NV::VPA2::HostAudio* getHostAudio() override { return &hostAudio_; }

    /** Stores the host time that `getTimeInfo` hands out. */
    // [audio thread]
    void setTransport(float tempo, double a, double b);

    void setDelegate(AudioFxKV3ManagerDelegate* delegate) { delegate_ = delegate; }
    AudioFxKV3ManagerDelegate* delegate() const { return delegate_; }
    /** The table of `getService`, kept for the life of the library; null when none. */
    NV::VPA2::ServiceTable* service() const { return service_; }
    /** The path last tried. */
    const epiText& path() const { return path_; }
    /** The title and text of the last message; empty after a good load. */
    const epiText& lastTitle() const { return lastTitle_; }
    const epiText& lastText() const { return lastText_; }
    /** What the system said about the last failure to load, for developers. */
    const std::string& lastDetail() const { return lastDetail_; }
    /** The version the library stated in the handshake. */
    std::int32_t pluginVersion() const { return pluginVersion_; }

private:
    /** Finds the product's library and loads it. @returns false after telling the user */
    bool loadPlugin(const char* productName);
    /** Steps of the load from opening the library on. */
    bool loadFrom(const epiText& path);
    void unload();
    bool fail(const char* title, const epiText& text);

    NV::VPA2::ServiceTable* service_ = nullptr;
    // Written on the audio thread, read by the library on any thread: relaxed, each value alone.
    std::atomic<float> tempo_{120.0f};
    std::atomic<double> timeA_{0.0};
    std::atomic<double> timeB_{0.0};
    AudioFxKV3ManagerDelegate* delegate_ = nullptr;
    AudioFxKV3HostAudioDummy hostAudio_;

    AudioFxKV3MessageSink* sink_ = nullptr;
    epiText path_;
    epiText lastTitle_;
    epiText lastText_;
    std::string lastDetail_;
    std::int32_t pluginVersion_ = 0;
};
