#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>
#include <vector>

/**
 * Small real nodes for driving the graph in tests: a timeline staircase whose every sample tells the
 * position it was read at, and a record of the requests a node was asked.
 */
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
 * or loop error shows as a wrong value.
 */
class StaircaseSource : public AudioSource
{
public:
    /** @param channels 1 or 2 */
    explicit StaircaseSource(int32_t channels = 2);
    virtual ~StaircaseSource() = default;

    bool provide(AudioData& request) override;
    bool read(AudioData& into) override;
    int32_t channels() override { return channels_; }
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /** Answers false from both transfers while set. */
    bool failing = false;
    std::vector<Request> requests;

private:
    void fill(AudioData& d) const;

    int32_t channels_;
    AudioBuffer own_;
};

/** A source of a constant level on both channels, by reference or by copy. */
class ConstantSource : public AudioSource
{
public:
    explicit ConstantSource(float level = 0.0f, int64_t maxFrames = 8192);
    virtual ~ConstantSource() = default;

    bool provide(AudioData& request) override;
    bool read(AudioData& into) override;
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    float level;
    bool failing = false;
    int32_t reads = 0;
    int32_t provides = 0;

private:
    AudioBuffer own_;
};

} // namespace enginetest
