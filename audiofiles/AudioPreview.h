#pragma once

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioResampler.h"
#include "audiofiles/someThread.h"
#include "engine/graph/AudioData.h"
#include "epi/epiPath.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

/** An overview at one width: per point the largest and smallest shaped sample times 127. */
struct AudioPreviewPrivateWaveScale
{
    std::vector<int8_t> maxima;
    std::vector<int8_t> minima;
    int64_t width = 0;
};

/**
 * The overview of a file for the waveform display: 750 points a second, one byte pair per point,
 * reduced on a thread of its own and readable while it grows.
 *
 * The thread writes each point once and then publishes progress with a release store; the interface
 * thread reads points up to progress after an acquire load. Scales for other widths are derived on
 * the interface thread.
 */
class AudioPreview : public someThread
{
public:
    /** Points of the overview per second of audio. */
    static constexpr int32_t kPointsPerSecond = 750;

    AudioPreview();
    ~AudioPreview() override;

    /** Starts the reduction when an overview is prepared, unfinished and not running. */
    // [ui thread]
    virtual void start();
    /** Stops the reduction, waiting for the thread. */
    // [ui thread]
    virtual void stop();
    /** addBlock with absolute positions, for blocks fed from outside (a recording). */
    virtual void feedBlock(const AudioData& data);
    /** reset and prepare in one, for an overview fed block by block. */
    virtual void openMemory(int64_t frames, int32_t rate);
    /**
     * Reduces one block into the overview at its position.
     * @param absolute take the block's position as the progress; otherwise only a greater one
     */
    virtual void addBlock(const AudioData& data, bool absolute);

    /**
     * Sizes the overview for frames at rate: a point every rate / 750 frames, a read about every
     * second. Frames that don't fill a point are dropped; fewer than one point gives no overview.
     */
    void prepare(int64_t frames, int32_t rate);
    /** Stops the thread and frees the overview, the file and the resampler. */
    void reset();

    /**
     * Opens a file for reduction at rate (0: the file's own); a file of another rate is converted
     * with the resampler that the factory makes, or without one the default factory's, or the
     * drop-sample one when no default is set either.
     * @return false when the file can't be opened: there will be no overview
     */
    // [ui thread]
    bool open(const epiPath& path, int32_t rate, const AudioResamplerFactory& factory = {});

    /**
     * The factory for previews whose owner gives none. This library can't make the quality
     * resampler itself: the program sets it here once at start-up, before any preview opens
     * (useQualityResamplerForPreviews in dsp/AudioResampler_DSP.h). An empty factory goes back to
     * the drop-sample resampler.
     */
    // [ui thread, start-up]
    static void setDefaultResamplerFactory(AudioResamplerFactory factory);
    static const AudioResamplerFactory& defaultResamplerFactory();

    /** The overview at a width, derived once from the full overview and kept. */
    // [ui thread]
    const AudioPreviewPrivateWaveScale& getScale(int64_t width);
    /**
     * Whether the overview grew since the last call: when it did, derived scales are dropped so the
     * display rebuilds them.
     */
    // [ui thread]
    bool changed();

    /** The shaping curve: linear with slope 1.25 up to +-0.5, a slope of 0.375 above, so that quiet
     * material stays visible and peaks fit. */
    static float shape(float x);
    /** The row of a point value v in a view of a height: v = 127 at the top, -127 at the bottom. */
    static int32_t rowFor(int32_t value, int32_t height);

    bool ready() const { return ready_.load(std::memory_order_acquire); }
    bool finished() const { return finished_.load(std::memory_order_acquire); }
    bool isRunning() const { return running_.load(std::memory_order_relaxed); }
    int32_t progress() const { return progress_.load(std::memory_order_acquire); }
    int32_t total() const { return total_; }
    int32_t step() const { return step_; }
    int32_t chunk() const { return chunk_; }
    int32_t points() const { return points_; }
    /** The full overview's point i; reads are safe while the thread writes. */
    int8_t maximum(int32_t i) const;
    int8_t minimum(int32_t i) const;

protected:
    // [disk thread]
    void run() override;

private:
    void freeStore();

    std::unique_ptr<AudioFileGuessSafe> file_;
    /** Frames reduced so far: release by the writer after its points, acquire by readers. */
    std::atomic<int32_t> progress_{0};
    int32_t total_ = 0;
    std::atomic<bool> ready_{false};
    std::atomic<bool> finished_{false};
    /** Whether a reduction thread was started and not yet stopped; relaxed, ui thread only. */
    std::atomic<bool> running_{false};
    int32_t step_ = 0;
    int32_t chunk_ = 0;
    int32_t points_ = 0;
    int32_t lastNotified_ = 0;
    /** The full overview, written by the thread while the interface thread reads it: one relaxed
     * byte per point, each written once. */
    std::unique_ptr<std::atomic<int8_t>[]> maxima_;
    std::unique_ptr<std::atomic<int8_t>[]> minima_;
    /** Scales derived for display widths. */
    std::vector<std::unique_ptr<AudioPreviewPrivateWaveScale>> scales_;
    std::unique_ptr<AudioResampler> resampler_;
};

/**
 * The overviews of a project's files, so that showing a track again is immediate. One reduction
 * runs at a time: showing a file stops the one shown before. There is no eviction.
 */
class PreviewCache
{
public:
    /** An overview and the path it belongs to, which is its key. */
    class Element : public AudioPreview
    {
    public:
        epiPath path;
    };

    /** @param rate the rate overviews are made at; 0 for each file's own */
    explicit PreviewCache(int32_t rate = 0) : rate_(rate) {}
    ~PreviewCache();

    /** The index of the element for path, or -1. */
    int32_t find(const epiPath& path) const;
    /**
     * Makes path's overview current, creating it when the file exists (an element that can't be
     * opened stays, with no overview), and starts its reduction.
     * @return the current overview, null when the file doesn't exist
     */
    // [ui thread]
    AudioPreview* show(const epiPath& path);
    /** Stops what is shown and deletes path's element. */
    // [ui thread]
    void remove(const epiPath& path);

    AudioPreview* current() const { return current_; }
    size_t size() const { return elements_.size(); }
    /** The resampler for files of another rate in this cache only; without it the previews' default
     * (AudioPreview::setDefaultResamplerFactory). */
    void setResamplerFactory(AudioResamplerFactory factory) { factory_ = std::move(factory); }

private:
    std::vector<std::unique_ptr<Element>> elements_;
    AudioPreview* current_ = nullptr;
    int32_t rate_ = 0;
    AudioResamplerFactory factory_;
};
