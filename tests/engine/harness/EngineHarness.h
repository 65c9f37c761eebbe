#pragma once

#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/MidiEvent.h"
#include "tests/support/RecordingDelegate.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace enginetest
{

/** What one block looked like from the device's side. */
struct BlockRecord
{
    /** Position the Manager stamped on the output. */
    int64_t position = 0;
    int64_t frames = 0;
    /** Index of the block's first frame in the device's own count. */
    int64_t deviceFrame = 0;
};

/**
 * Drives Manager::processBlock offline exactly as the device's callback does: two device buffers of
 * two channels, wrapped each block in two AudioData over the first frames of them, a MidiEventBlock,
 * any block size up to the largest given. It fills the input from a generator and keeps the output.
 */
class EngineHarness
{
public:
    /**
     * @param manager the engine under test
     * @param sampleRate, maxBlock the device format; the Manager is told it with setFormat unless
     *        tellFormat is false
     */
    EngineHarness(Manager& manager, uint32_t sampleRate, uint32_t maxBlock, bool tellFormat = true);

    /**
     * Fills the device input of one block; deviceFrame counts frames since the harness began. The
     * default leaves silence.
     */
    std::function<void(AudioData& input, int64_t deviceFrame)> fillInput;

    /** One block of frames (at most maxBlock). */
    BlockRecord runBlock(int64_t frames);
    /** Blocks of blockSize until total frames have run; the last one may be shorter. */
    void run(int64_t total, int64_t blockSize);
    /** Blocks of the given sizes in order. */
    void runSequence(const std::vector<int64_t>& sizes);

    /** Block sizes of 1 to maxBlock frames, drawn from seed, that add up to total. */
    static std::vector<int64_t> randomBlocks(uint32_t seed, int64_t total, int64_t maxBlock);

    /** Writes the staircase (deviceFrame mod 32768) / 32768 on channel 0 and its negative on channel 1. */
    static void staircaseInput(AudioData& input, int64_t deviceFrame);

    /** The MIDI the next block carries; emptied after each block, as the device does. */
    MidiEventBlock& midi() { return midi_; }

    /** Keeps every output frame in left and right while set. */
    bool recordOutput = true;
    /** Keeps a BlockRecord of every block in blocks while set. */
    bool recordBlocks = true;
    std::vector<float> left;
    std::vector<float> right;
    std::vector<BlockRecord> blocks;

    int64_t deviceFrames() const { return deviceFrames_; }
    /** The device input as the last block left it (after the Manager's gain). */
    const AudioBuffer& input() const { return in_; }

private:
    Manager& manager_;
    uint32_t maxBlock_;
    AudioBuffer in_;
    AudioBuffer out_;
    MidiEventBlock midi_;
    int64_t deviceFrames_ = 0;
};

/** What a node delivered over a run of requests. */
struct Pulled
{
    std::vector<float> left;
    std::vector<float> right;
    /** Requests the node answered false; their frames are left as silence. */
    int32_t refusals = 0;
};

/**
 * Pulls a node alone as its owner would: consecutive requests of the given sizes from position on, by
 * provide (byReference) or by read into two-channel buffers, and gathers what it delivered. A node that
 * hands over fewer frames than asked leaves the rest of that request silent.
 */
Pulled pullNode(AudioSource& node, int64_t position, const std::vector<int64_t>& sizes, bool byReference);

using testsupport::RecordingDelegate;

} // namespace enginetest
