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

/** One block as the device saw it: the position the Manager stamped on the output, and its size. */
struct BlockRecord
{
    int64_t position = 0;
    int64_t frames = 0;
};

/**
 * Drives Manager::processBlock offline exactly as the device's callback does: two device buffers of
 * two channels, wrapped each block in two AudioData over the first frames of them, a MidiEventBlock,
 * any block size up to the largest given. It fills the input from a generator and keeps the output.
 */
class EngineHarness
{
public:
    /** The Manager is told the device format with setFormat unless tellFormat is false. */
    EngineHarness(Manager& manager, uint32_t sampleRate, uint32_t maxBlock, bool tellFormat = true);

    /** Fills the device input of one block; deviceFrame counts frames since the harness began. */
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

    /** Keep every output frame in left and right, and a record of every block in blocks, while set. */
    bool recordOutput = true;
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

using testsupport::RecordingDelegate;

} // namespace enginetest
