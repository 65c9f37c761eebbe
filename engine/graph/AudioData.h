#pragma once

#include <cstdint>

/**
 * Descriptor of one block of planar 32-bit float audio: up to two channel pointers, a frame count, the
 * timeline position of the first frame and the number of valid channels. It owns nothing and is cheap
 * enough to build on the stack for every request, so its fields are plain public data that every node
 * reads and writes directly.
 *
 * None of the operations allocates; all of them may run on the audio thread.
 */
class AudioData
{
public:
    /** A new descriptor has every field zero. */
    AudioData() = default;
    AudioData(const AudioData&) = default;
    AudioData& operator=(const AudioData&) = default;
    virtual ~AudioData() = default;

    /** Copies frames and position of other; the channel pointers stay. */
    void adoptRange(const AudioData& other);

    /**
     * Copies both channel pointers, frames, position and channels of other. When this descriptor's
     * duplicateMono is set and the result has one channel, it presents it as two channels that alias the
     * same samples.
     */
    void adopt(const AudioData& other);

    /** Moves each valid channel pointer forward by frames samples; frames and position stay. */
    void advance(int64_t frames);

    /** Limits every sample of every channel to -1.0 .. +1.0. */
    void clamp();

    /**
     * For each of this descriptor's channels, copies src.frames samples from the same channel of src to
     * the start of this one. This descriptor's frames field is not changed. A channel that src lacks is
     * left as it was.
     */
    void copyFrom(const AudioData& src);

    /** As copyFrom, for count samples starting offset samples into src. */
    void copyRangeFrom(const AudioData& src, int64_t offset, int64_t count);

    /**
     * Asked of a descriptor that holds a stretch of the timeline: false when position lies before this
     * descriptor's position or no frame of the stretch remains from position on. Otherwise count becomes
     * the smaller of wanted and the frames remaining, and the answer is true.
     * @param position timeline position asked for
     * @param wanted frames wanted from there
     * @param count out: frames that can be served
     */
    bool available(int64_t position, int64_t wanted, int64_t& count) const;

    /** Writes 0.0 to frames samples of each channel. */
    void silence();

    /** Multiplies every sample by factor (once, even where the two channel pointers alias). */
    void scale(float factor);

    /** The largest absolute sample over all channels; 0.0 when there is no channel. */
    float peak() const;

    /**
     * Adds src into this descriptor over this descriptor's channels and frames. Channel 0 takes
     * gain * (1 - pan), channel 1 takes gain * (1 + pan): a deliberately linear law that leaves both
     * channels at gain for pan 0 and puts twice the gain on the near side at the extremes.
     * @param gain linear factor
     * @param pan -1.0 (left) .. +1.0 (right)
     */
    void mixFrom(const AudioData& src, float gain, float pan);

    /** Start of each channel's samples; the second may equal the first, or be null. */
    float* channel[2] = {nullptr, nullptr};
    /** Frames the descriptor covers. */
    int64_t frames = 0;
    /** Timeline position of the first frame. */
    int64_t position = 0;
    /** Number of valid channel pointers: 0, 1 or 2. */
    int32_t channels = 0;
    /** Request flag: when this descriptor adopts a one-channel source it presents it as two channels. */
    bool duplicateMono = false;
    /** Cleared by the constructors and by AudioBuffer::alloc, copied by Interleaver::interleave, tested
     * nowhere. */
    bool spare = false;
};

/**
 * An AudioData that owns the arrays its channel pointers reach. The arrays are 16-byte aligned.
 *
 * Capacity records the size last asked of alloc, not the largest ever held: alloc of fewer frames keeps
 * the arrays but lowers capacity, and a later larger request reallocates even though the arrays would
 * have held it. Code that sizes buffers in prepare relies on neither; it is kept as the buffer's
 * documented behaviour.
 */
class AudioBuffer : public AudioData
{
public:
    AudioBuffer() = default;
    AudioBuffer(const AudioBuffer&) = delete;
    AudioBuffer& operator=(const AudioBuffer&) = delete;
    /** Calls release and frees the arrays. */
    ~AudioBuffer() override;

    /**
     * Sizes the buffer for frames frames of channels channels. With frames not above capacity and the
     * same channels it only stores frames as capacity, and the samples stay as they were. Otherwise it
     * reallocates, zeroes the new arrays and nulls the pointers of channels it does not hold. Neither
     * case changes the frames field. Allocates: not for the audio thread.
     */
    void alloc(int64_t frames, int32_t channels);

    /**
     * Frees the arrays, nulls the channel pointers and sets capacity and channels to 0. Does nothing
     * when capacity is 0. Frames and position are left.
     */
    void release();

    /**
     * Fills the buffer from interleaved signed 16-bit stereo: alloc(frames, 2), sets frames and divides
     * each value by 32767 (so -32768 lands slightly below -1.0 and is not clipped).
     */
    void fillFromInt16(const int16_t* samples, int64_t frames);

    /** Frames last asked of alloc. */
    int64_t capacity() const { return capacity_; }

private:
    void freeStore();

    int64_t capacity_ = 0;
    /** The arrays actually owned; channel pointers may have been moved by advance or adopt. */
    float* store_[2] = {nullptr, nullptr};
};
