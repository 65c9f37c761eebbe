#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * The audio side of a track as the mixer and the Manager drive it: a node that can also take the live
 * input in the mixer's live pass, and that is told the transport's state. Tracks and the metronome sit
 * on mixer strips through this interface.
 */
class TrackSource : public AudioSource
{
public:
    virtual ~TrackSource() = default;

    /**
     * The live pass: an armed track takes the block of device input and delivers what is to be heard
     * of it into output (by reference, as provide does).
     * @param input the device input of this block, after the input gain
     * @param output request with the block's frames and position; on success it points at the result
     * @return false when the track takes no live input
     */
    // [audio thread]
    virtual bool processInput(AudioData& input, AudioData& output) = 0;

    /** Tells the track whether the transport runs. */
    // [ui thread]
    virtual void setPlaying(bool playing) = 0;

    /** Length of what the track plays, in engine frames. */
    // [ui thread]
    virtual int64_t length() = 0;

    /** Offset of the track on the timeline, in engine frames. */
    // [ui thread]
    virtual int64_t offset() = 0;

    /** Sets the offset of the track, in engine frames. */
    // [ui thread]
    virtual void setOffset(int64_t frames) = 0;

    /** The transport's speed ratio: session frames per engine frame. */
    // [ui thread]
    virtual void setSpeedRatio(float ratio) = 0;
};
