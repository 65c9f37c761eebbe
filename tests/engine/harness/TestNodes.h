#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>
#include <vector>

/** Small real nodes for driving the graph in tests. */
namespace enginetest
{

/** One request as a node saw it. */
struct Request
{
    int64_t position = 0;
    int64_t frames = 0;
};

/**
 * A source whose sample at timeline position t is t on channel 0 and -t on channel 1: any offset, seek
 * or loop error shows as a wrong value. It notes every request, and answers false while failing.
 */
class StaircaseSource : public AudioSource
{
public:
    /** @param channels 1 or 2 */
    explicit StaircaseSource(int32_t channels = 2);

    bool provide(AudioData& request) override;
    bool read(AudioData& into) override;
    int32_t channels() override { return channels_; }
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    bool failing = false;
    std::vector<Request> requests;

protected:
    virtual float value(int64_t t) const { return static_cast<float>(t); }
    float rightSign_ = -1.0f;

private:
    void fill(AudioData& d) const;

    int32_t channels_;
    AudioBuffer own_;
};

/** A source of a constant level on both channels. */
class ConstantSource : public StaircaseSource
{
public:
    explicit ConstantSource(float value) : level(value) { rightSign_ = 1.0f; }
    int32_t pulls() const { return static_cast<int32_t>(requests.size()); }

    float level;

protected:
    float value(int64_t) const override { return level; }
};

} // namespace enginetest
