#pragma once

#include <cstdint>

namespace dsp::Stretch
{

/**
 * A source the stretch voices read from, addressed in frames. Frames of a two-channel source come
 * interleaved.
 */
class IRAPCMSource
{
public:
    virtual ~IRAPCMSource() = default;

    /** Length in frames. */
    virtual int64_t length() = 0;
    /** Spare query; 0. */
    virtual int32_t spare() { return 0; }
    /** Frames per second. */
    virtual int32_t rate() = 0;
    /** 1 or 2. */
    virtual int32_t channels() = 0;
    /**
     * Fills destination with the frames first to last, both inclusive, interleaved for two channels.
     * The destination has room for last - first + 1 frames of channels() samples each.
     * @return a status that callers pass on and don't act on
     */
    // [audio thread]
    virtual int32_t fetch(float* destination, int64_t first, int64_t last) = 0;

    /**
     * Fills destination with one channel of the frames first to last, where the source can do so
     * without the interleaved detour; the same frames that fetch followed by picking the channel
     * would give.
     * @param channel 1 (left) or 2 (right)
     * @param status out: what fetch would have returned
     * @return false when the source offers no such path; destination is then untouched
     */
    // [audio thread]
    virtual bool fetchChannel(float* destination, int64_t first, int64_t last, int32_t channel,
                              int32_t& status)
    {
        (void)destination;
        (void)first;
        (void)last;
        (void)channel;
        (void)status;
        return false;
    }
};

/**
 * Presents one channel of a two-channel source as a mono source. It fetches the interleaved frames
 * into the destination and then compacts the wanted channel in place, so the destination must have
 * room for the interleaved frames; a source that can deliver one channel directly is asked for that
 * instead.
 */
class CRAPCMMonoAdapter final : public IRAPCMSource
{
public:
    CRAPCMMonoAdapter() = default;

    /**
     * @param inner the source, not owned
     * @param channel 1 (left) or 2 (right)
     */
    void setSource(IRAPCMSource* inner, int32_t channel);

    int64_t length() override;
    int32_t rate() override;
    int32_t channels() override;
    // [audio thread]
    int32_t fetch(float* destination, int64_t first, int64_t last) override;

    IRAPCMSource* inner() const { return inner_; }
    int32_t channel() const { return channel_; }

private:
    IRAPCMSource* inner_ = nullptr;
    int32_t channel_ = 1;
};

} // namespace dsp::Stretch
