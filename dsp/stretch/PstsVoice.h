#pragma once

#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsGrainReader.h"
#include "dsp/stretch/PstsOverlapAdd.h"
#include "dsp/stretch/PstsScratch.h"

#include <cstdint>
#include <memory>

namespace dsp::Stretch
{

/**
 * The stretch of one channel. Grains two lattice periods long are taken from a fixed lattice of source
 * positions, resampled by the pitch factor, windowed and laid down at a hop of the lattice period times
 * the pitch factor. The stretch only decides which lattice grain comes next: at a slower speed a grain
 * is repeated, at a faster one grains are skipped.
 *
 * Source positions (analysisTime and the lattice) are kept in double precision: a float stops holding
 * whole frames past 2^24 frames, six minutes at 44.1 kHz, and a song plays longer than that.
 *
 * Lifecycle: made, source attached, lattice and rates set up, sought; process delivers silence until
 * the first seek. Nothing allocates after construction.
 */
class PstsVoice
{
public:
    enum State : int32_t
    {
        kMade = 0,
        kHasSource = 1,
        kSetUp = 2,
        kSought = 3,
    };

    /**
     * @param maxRate highest source rate, frames per second
     * @param minGrainFrequency lowest grain frequency, Hz; sets the longest grain
     * @param maxPitchFactor largest pitch factor the grain reading follows
     * @param extra ring frames beyond the longest grain
     * @param scratch work memory shared with the other voice of the effect
     */
    PstsVoice(float maxRate, float minGrainFrequency, float maxPitchFactor, int32_t extra,
              PstsScratch& scratch);
    PstsVoice(const PstsVoice&) = delete;
    PstsVoice& operator=(const PstsVoice&) = delete;

    void setSource(IRAPCMSource* source);
    IRAPCMSource* source() const { return source_; }

    /**
     * Sets the pitch factor: grains are read with a step of 1 / min(factor, maxPitchFactor), while the
     * hop follows the factor itself.
     */
    void setPitchFactor(float factor);

    /**
     * Sets the lattice period. A new period starts a new lattice at the furthest source position used
     * so far; the old lattice stays in force below it.
     * @param period source frames; held between 1 and the longest grain
     * @param pitchFactor the effect's unclamped pitch factor, for the hop
     */
    void setGrain(float period, float pitchFactor);

    /** @param ratio source rate over output rate; above 1 the output is low-passed at 1 / ratio */
    void setRateRatio(float ratio);

    /** @param stretch output time over source time; takes effect at the next grain */
    void setStretch(float stretch);

    /** Restarts the grain stream from silence at a source position. */
    // [audio thread]
    void seek(double position);

    /**
     * Writes count output frames.
     * @return the status of the last grain fetch
     */
    // [audio thread]
    int32_t process(float* output, int32_t count);

    float hop() const { return hop_; }
    float grain() const { return grain_; }
    float stretch() const { return stretch_; }
    float pitchFactor() const { return pitchFactor_; }
    float rateRatio() const { return rateRatio_; }
    float maxPitchFactor() const { return maxPitchFactor_; }
    float maxGrain() const { return maxGrain_; }
    int32_t grainCapacity() const { return grainCapacity_; }
    int32_t grainCount() const { return grainCount_; }
    const float* grainBuffer() const { return grainBuffer_.get(); }
    double analysisTime() const { return analysisTime_; }
    float previousGrain() const { return previousGrain_; }
    double anchor() const { return anchor_; }
    double furthest() const { return furthest_; }
    double lastStart() const { return lastStart_; }
    float lastPitchFactor() const { return lastPitchFactor_; }
    State state() const { return state_; }
    const PstsOverlapAdd& overlapAdd() const { return overlapAdd_; }

private:
    void updateHop();
    /** Chooses the lattice grain nearest to analysisTime_: its first frame and length in source frames. */
    void chooseGrain(double& start, double& length) const;

    /** Distance between grains in the output, ring frames: grain_ times the unclamped pitch factor. */
    float hop_ = 0.0f;
    /** Lattice period, source frames. */
    float grain_ = 200.0f;
    float stretch_ = 1.0f;
    /** Limited to maxPitchFactor_; sets the grain read step. */
    float pitchFactor_ = 1.0f;
    float rateRatio_ = 1.0f;
    float maxPitchFactor_;
    float maxGrain_;
    IRAPCMSource* source_ = nullptr;
    PstsOverlapAdd overlapAdd_;
    PstsGrainReader reader_;
    std::unique_ptr<float[]> grainBuffer_;
    int32_t grainCount_ = 0;
    int32_t grainCapacity_;
    int32_t fetchStatus_ = 0;
    /** Source position of the next grain. */
    double analysisTime_ = 0.0;
    /** Lattice period before the last change. */
    float previousGrain_ = 200.0f;
    /** Where the lattice now in force began. */
    double anchor_ = 0.0;
    /** The highest source position used so far. */
    double furthest_ = 0.0;
    /** Source position of the grain in the buffer. */
    double lastStart_;
    float lastPitchFactor_;
    State state_ = kMade;
};

} // namespace dsp::Stretch
