#pragma once

#include "audiofiles/AudioFileLoaded.h"
#include "engine/MetronomeControls.h"
#include "engine/MetronomeDelegate.h"
#include "engine/Track.h"
#include "engine/graph/AudioAlwaysStereo.h"
#include "engine/graph/AudioData.h"

#include <atomic>
#include <cstdint>

/**
 * The fifth strip of the mixer: plays a sampled click on every beat, the first beat of each bar with
 * the accent click. While the transport runs the beats lie on the transport's own frames; while it
 * stands the click runs on from where it stood, on its own counter, at the same grid.
 *
 * It derives from Track so that it sits on a strip and is told the transport's state like the other
 * four, but it plays from its two samples and leaves the track's chain alone.
 *
 * Bars count from position 0, so the accent always falls on a multiple of `numerator` beats from the
 * start of the session, and a locate keeps that grid. Every beat starts a stretch of the block of its
 * own, read from exactly one sample at the distance from its beat: a click longer than a beat is cut
 * off at the next one, and several beats in one block each land on their exact frame.
 *
 * Threads: provide runs on the audio thread. Tempo and signature reach it as one atomic word (the
 * frames per beat, the numerator). loadClick rebuilds buffers the audio thread reads, so it is only
 * called with the strip muted, the metronome disabled and waitForBlocks passed.
 */
class Metronome : public Track, public MetronomeControls
{
public:
    /** Rate of the click samples, whatever rate they were made at. */
    static constexpr uint32_t kClickRate = 44100;

    Metronome();
    ~Metronome() override;

    // AudioSource
    /**
     * The clicks of the block: silence where no click sounds. False while disabled.
     * @param request frames and position; on success it points at the metronome's own buffer
     */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Stores the format, sizes the block and brings both clicks to the device rate. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    // MetronomeControls
    // [ui thread]
    void setTempo(float bpm) override;
    // [ui thread]
    void setTimeSignature(int32_t numerator, int32_t denominator) override;
    float tempo() const override { return tempoValue_; }
    int32_t numerator() const override { return numerator_.load(std::memory_order_relaxed); }
    // [any thread]
    int32_t denominator() const override { return denominator_.load(std::memory_order_relaxed); }
    // [ui thread]
    void setDelegate(MetronomeDelegate* delegate) override;
    // [ui thread]
    void setEnabled(bool on) override { enabled_.store(on, std::memory_order_release); }

    /**
     * Replaces a click with a copy of samples, taken to be at 44.1 kHz, and converts both clicks to the
     * device rate again. Only with the strip muted, disabled and waitForBlocks passed.
     * @param accent true for the first beat of a bar, false for the others
     */
    // [ui thread]
    void loadClick(bool accent, const AudioData& samples);
    bool isEnabled() const { return enabled_.load(std::memory_order_relaxed); }

    /** Frames from one beat to the next at the device rate; 0 before prepare. */
    int64_t framesPerBeat() const { return framesPerBeat_.load(std::memory_order_relaxed); }
    /** The counter that positions the clicks while the transport stands. */
    // [audio thread]
    int64_t freePosition() const { return freePosition_; }
    /** The clicks as loaded, at 44.1 kHz. */
    const AudioFileLoaded& accentSample() const { return accentSample_; }
    const AudioFileLoaded& beatSample() const { return beatSample_; }

private:
    void recompute();
    void reloadClicks();
    // [audio thread]
    void schedule(const AudioData& block);

    AudioBuffer output_;
    AudioFileLoadedResampled accentResampled_;
    AudioFileLoadedResampled beatResampled_;
    AudioFileLoaded accentSample_;
    AudioFileLoaded beatSample_;
    AudioAlwaysStereo accentStereo_;
    AudioAlwaysStereo beatStereo_;
    // Release on the interface's store, acquire on the audio thread: publishes the delegate object.
    std::atomic<MetronomeDelegate*> delegate_{nullptr};
    // Relaxed: each is a command of its own; a block that sees a new tempo with the old numerator is
    // accepted.
    std::atomic<int64_t> framesPerBeat_{0};
    std::atomic<int32_t> numerator_{4};
    // Relaxed: the Manager reads it on the audio thread for the plug-ins' beat position, a value that
    // stands alone.
    std::atomic<int32_t> denominator_{4};
    float tempoValue_ = 120.0f; // interface thread only
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    // Release by the interface, acquire in provide: clicks loaded while the metronome was off are
    // published when it is switched back on.
    std::atomic<bool> enabled_{false};
    int64_t freePosition_ = 0; // audio thread only
};
