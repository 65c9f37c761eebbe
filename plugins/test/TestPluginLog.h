#pragma once

// What a test library records about the calls it receives. Tests reach it through the exported
// `kv3TestPluginLog` of the same loaded library.

#include <atomic>
#include <cstdint>

namespace kv3test
{

/** Largest number of call codes and MIDI batches kept; later ones are counted but not stored. */
constexpr int kMaxCalls = 1024;
constexpr int kMaxBatches = 64;
constexpr int kMaxStateBytes = 4096;

/**
 * Counters and the order of calls. The call order is a string of one letter per call:
 * 'a' acquire, 'r' release, 'p' prepare, 'C' createInstance, 'D' releaseInstance, 'E' createEditor,
 * 'V' getService, 'i' setInputChannels, 'o' setOutputChannels, 'I' initialise, 'T' terminate,
 * 'B' setBlockSize, 'R' setSampleRate, 'S' start, 's' stop, 'M' sendMidi, 'W' setState,
 * 'G' getState, 'F' freeState, 'u' audioSuspended, 'U' audioResumed. `process` is only counted.
 */
struct TestPluginLog
{
    std::atomic<int> callCount{0};
    char calls[kMaxCalls + 1] = {};

    std::int32_t hostVersionSeen = 0;
    std::int32_t inputChannels = 0;
    std::int32_t outputChannels = 0;
    std::int32_t blockSize = 0;
    std::int32_t maxMidi = 0;
    float sampleRate = 0.0f;
    std::int32_t liveInstances = 0;

    // Written on the audio thread, read by tests after the fact or while it runs.
    std::atomic<std::int64_t> processCount{0}; // relaxed: a counter
    std::atomic<std::int32_t> lastFrames{0};   // relaxed: a meter
    std::atomic<std::int32_t> lastFlag{-1};    // relaxed: a meter
    std::atomic<std::int32_t> midiEvents{0};   // relaxed: a counter
    std::int32_t midiBatchCount = 0;
    std::int32_t midiBatches[kMaxBatches] = {};
    std::uint32_t firstMessage = 0;
    std::uint32_t lastMessage = 0;
    std::uint32_t lastPosition = 0;

    std::int32_t lastStateSize = -1;
    unsigned char lastState[kMaxStateBytes] = {};

    // What the instance saw of the host's tables when it was made.
    std::int32_t hostTableVersion = 0;
    bool timeInfoResult = false;
    float tempo = 0.0f;
    double timeA = -1.0;
    double timeB = -1.0;
    bool hostAudioResult = false;
    char hostAudioText[64] = {};
};

} // namespace kv3test
