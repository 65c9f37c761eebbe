#pragma once

#include "dsp/stretch/CRAPSTS.h"
#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsScratch.h"
#include "dsp/stretch/PstsVoice.h"
#include "dsp/stretch/nvEfxBase.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

class nvEfxImplPstsPoly;

/**
 * The stretch engine's view of the effect's input: a random-access source that pulls from the
 * effect's callback. The stream is treated as one hour long. A fetch pulls one frame fewer than it
 * spans, so the final frame of a fetch keeps what was there; the grain reader never uses it.
 */
class EfxPstsRAPCMSourcePoly final : public dsp::Stretch::IRAPCMSource
{
public:
    explicit EfxPstsRAPCMSourcePoly(nvEfxImplPstsPoly& effect) : effect_(&effect) {}

    int64_t length() override;
    int32_t rate() override;
    int32_t channels() override;
    // [audio thread]
    int32_t fetch(float* destination, int64_t first, int64_t last) override;
    /** One plane of the stereo pull, copied straight out of the stage. */
    // [audio thread]
    bool fetchChannel(float* destination, int64_t first, int64_t last, int32_t channel,
                      int32_t& status) override;

private:
    nvEfxImplPstsPoly* effect_;
};

/**
 * Speed and pitch as an effect: a CRANewPolyPSTS with two voices behind the parameter ids below. With
 * both stretch and pitch factor at unity the input goes straight through and the engine is not run.
 *
 * Stretch and pitch factor may be set from the interface thread while the audio thread processes:
 * they are stored in atomics and handed to the engine at the head of the next process call, so that
 * the engine itself is only ever touched by the thread that pulls the graph.
 */
class nvEfxImplPstsPoly final : public nvEfxBase
{
public:
    /** Parameter ids. */
    enum : int32_t
    {
        kInChannels = 10000,  ///< 1 or 2
        kOutChannels = 10001, ///< 1 or 2
        kSampleRate = 10002,  ///< frames per second
        kReserved = 10003,    ///< answers 0
        kStretch = 10004,     ///< output time over source time, 0.001 to 10
        kPitchFactor = 10005, ///< source step is 1 / factor, 0.001 to 10
    };

    static constexpr float kMinValue = 0.001f;
    static constexpr float kMaxValue = 10.0f;
    /** Frames of each plane stage for stereo pulls, at least. */
    static constexpr int32_t kStageFrames = 88200;

    nvEfxImplPstsPoly();
    ~nvEfxImplPstsPoly() override;
    nvEfxImplPstsPoly(const nvEfxImplPstsPoly&) = delete;
    nvEfxImplPstsPoly& operator=(const nvEfxImplPstsPoly&) = delete;

    int32_t effectId() const override { return kEfxPstsPoly; }

    /**
     * Sets a parameter. Stretch and pitch factor are limited to 0.001 .. 10; setting the value already
     * in force does nothing, not even a reseek. A new stretch makes the next process seek, so that
     * source and output positions agree under it; a new pitch factor leaves the grain stream alone.
     * @return 1 when taken; 0 for an unknown id, id 10003, a value that is not a number, or a channel
     *         count or rate out of range
     */
    // [any thread]
    int32_t setParameter(int32_t id, float value) override;
    int32_t getParameter(int32_t id, float* value) override;

    /**
     * Writes count frames at an output position. A position other than the last one plus its count
     * seeks the engine to position / stretch in source frames, restarting the grains there.
     */
    // [audio thread]
    int32_t process(int32_t instance, float** channels, int64_t position, int32_t count) override;

    /** Builds the engine for the channels and rate set so far; allocates. */
    // [ui thread, device stopped]
    int32_t initialise() override;

    /** The position the next process continues, or -1. */
    // [audio thread]
    int64_t expected() const { return expected_; }
    bool pitchIsUnity() const { return isUnity(pitchFactor_.load(std::memory_order_relaxed)); }
    bool stretchIsUnity() const { return isUnity(stretch_.load(std::memory_order_relaxed)); }
    bool initialised() const { return initialised_; }
    int32_t inChannels() const { return inChannels_; }
    int32_t outChannels() const { return outChannels_; }
    int32_t sampleRate() const { return sampleRate_; }
    dsp::Stretch::CRANewPolyPSTS* engine() const { return engine_.get(); }

private:
    friend class EfxPstsRAPCMSourcePoly;

    enum : uint32_t
    {
        kStretchChanged = 1u,
        kPitchChanged = 2u,
    };

    /** A stretch or pitch factor this close to 1 plays the input unprocessed. */
    static bool isUnity(float v);
    /** The source frame an output position corresponds to under a stretch. */
    static double sourcePosition(int64_t position, float stretch);
    /** Hands changed parameters to the engine. */
    void applyChanges();
    int32_t fetchSource(float* destination, int64_t first, int64_t last);
    bool fetchSourceChannel(float* destination, int64_t first, int64_t last, int32_t channel);
    /** Pulls a stereo stretch into the stage unless it holds it already from this block. */
    int32_t pullStage(int64_t first, int32_t frames);

    EfxPstsRAPCMSourcePoly source_;
    std::unique_ptr<dsp::Stretch::PstsScratch> scratch_;
    std::array<std::unique_ptr<dsp::Stretch::PstsVoice>, 2> voices_;
    std::unique_ptr<dsp::Stretch::CRANewPolyPSTS> engine_;
    // Written by the interface thread, read by the audio thread at the head of process. The value is
    // stored relaxed before the flag is set with release; process takes the flags with acquire and
    // then sees at least that value.
    std::atomic<float> pitchFactor_{1.0f};
    std::atomic<float> stretch_{1.0f};
    std::atomic<uint32_t> pending_{0};
    /** Output position the next process continues; -1 forces a seek. Audio thread only. */
    int64_t expected_ = -1;
    std::array<std::unique_ptr<float[]>, 2> stage_;
    int32_t stageFrames_ = 0;
    // What the stage holds: the two voices read the same grain one after the other, and the second
    // is served from the stage rather than by a second pull. Valid within one process call only.
    int64_t stagedFirst_ = 0;
    int32_t stagedFrames_ = 0;
    bool initialised_ = false;
    int32_t inChannels_ = 1;
    int32_t outChannels_ = 1;
    int32_t sampleRate_ = 44100;
};
