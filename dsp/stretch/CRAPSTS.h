#pragma once

#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsScratch.h"
#include "dsp/stretch/PstsVoice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace dsp::Stretch
{

/**
 * Speed and pitch of a mono or stereo source: one PstsVoice for each channel, reading the source
 * directly (mono) or through one CRAPCMMonoAdapter for each channel (stereo).
 *
 * Order of use: voices (made here or handed in by setVoices), setSource, setOutputRate,
 * setGrainFrequency, seek, setPitchFactor, setStretch; then process. All of it runs on the thread that
 * pulls the graph; nothing allocates after construction.
 */
class CRAPSTS
{
public:
    /** Frames of the stereo staging buffers of the interleaved process. */
    static constexpr int32_t kStageFrames = 128;

    virtual ~CRAPSTS();
    CRAPSTS(const CRAPSTS&) = delete;
    CRAPSTS& operator=(const CRAPSTS&) = delete;

    /**
     * @param factor source step is 1 / factor: 2 to the power of minus the semitones over 12. The hop
     *        follows it unclamped; grain reading follows it up to each voice's maxPitchFactor.
     */
    virtual void setPitchFactor(float factor) = 0;
    /** @param frequency grains per second of source; the lattice period is the source's rate over it */
    virtual void setGrainFrequency(float frequency) = 0;

    /** Hands in the voices when they are not owned. Voice 2 may be null for a mono source. */
    void setVoices(PstsVoice* first, PstsVoice* second);
    /** Takes the source's channels; a stereo source is read through the two adapters. */
    void setSource(IRAPCMSource* source);
    /** @param rate output frames per second; a source at a higher rate is low-passed */
    void setOutputRate(float rate);
    /** @param stretch output time over source time; both voices, from their next grain */
    void setStretch(float stretch);
    /** Restarts both voices from silence at a source position in frames. */
    // [audio thread]
    void seek(double position);

    /**
     * Planar output of a stereo source; with a mono source it writes nothing.
     * @return the status of the last fetch, or count with a mono source
     */
    // [audio thread]
    int32_t process(float* left, float* right, int32_t count);

    /** Interleaved output: mono writes directly, stereo is woven from the staging buffers. */
    // [audio thread]
    int32_t process(float* interleaved, int32_t count);

    float pitchFactor() const { return pitchFactor_; }
    float stretch() const { return stretch_; }
    int32_t channels() const { return channels_; }
    bool ownsVoices() const { return ownsVoices_; }
    PstsVoice* voice(int32_t i) const { return voices_[static_cast<size_t>(i)]; }

protected:
    /**
     * @param ownsVoices true to make two voices here, for sources of up to 96,000 Hz
     * @param scratch shared work memory for the voices this makes; null when they are handed in
     */
    CRAPSTS(bool ownsVoices, PstsScratch* scratch);

    /** Calls f on each voice that is set, also one that a mono source leaves idle. */
    template <typename F> void forEachVoice(F f)
    {
        for (PstsVoice* v : voices_)
        {
            if (v != nullptr)
            {
                f(*v);
            }
        }
    }

    float pitchFactor_ = 1.0f;
    std::array<PstsVoice*, 2> voices_{};
    IRAPCMSource* source_ = nullptr;
    std::array<CRAPCMMonoAdapter, 2> adapters_{};
    int32_t channels_ = 0;
    bool ownsVoices_;
    float stretch_ = 1.0f;
    float stage_[2][kStageFrames] = {};

private:
    PstsScratch ownScratch_;
    std::array<std::unique_ptr<PstsVoice>, 2> ownVoices_;
};

/** The stretch engine as the effect uses it: CRAPSTS with its parameter operations. */
class CRANewPolyPSTS final : public CRAPSTS
{
public:
    /**
     * @param ownsVoices true to make the voices here
     * @param scratch the shared scratch of the voices that the effect makes; may be null when
     *        ownsVoices is true
     */
    CRANewPolyPSTS(bool ownsVoices, PstsScratch* scratch);

    void setPitchFactor(float factor) override;
    void setGrainFrequency(float frequency) override;
};

} // namespace dsp::Stretch
