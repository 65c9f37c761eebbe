#pragma once

#include "dsp/stretch/nvEfxTable.h"

#include <cstdint>

/**
 * The input of an effect as the host gives it: anything that can fill planar channels with frames
 * from a position.
 */
class nvEfxSource
{
public:
    /**
     * Fills channels with count frames from position.
     * @return frames delivered
     */
    // [audio thread]
    virtual int32_t read(float** channels, int64_t position, int32_t count) = 0;

protected:
    ~nvEfxSource() = default;
};

/**
 * The host's handle on one effect: each operation forwards to the flat table. The effect is destroyed
 * with this object.
 */
class nvEfx
{
public:
    nvEfx() = default;
    virtual ~nvEfx();
    nvEfx(const nvEfx&) = delete;
    nvEfx& operator=(const nvEfx&) = delete;

    /**
     * Makes the effect and registers its input. An earlier effect of this object is destroyed first.
     * @param source the input, not owned; may be null for an effect that needs none
     * @return false for an unknown id
     */
    // [ui thread, device stopped]
    virtual bool create(int32_t effectId, nvEfxSource* source);
    /** The id given to a successful create, else -1. */
    virtual int32_t effectId() const { return effectId_; }
    // [any thread]
    virtual int32_t setParameter(int32_t id, float value);
    virtual int32_t getParameter(int32_t id, float* value);
    virtual int32_t ask(intptr_t a, intptr_t b, intptr_t c);
    // [audio thread]
    virtual int32_t process(int32_t instance, float** channels, int64_t position, int32_t count);
    /** setParameter with id 100. */
    virtual int32_t setMainParameter(float value);
    // [ui thread, device stopped]
    virtual int32_t initialise();

    nvEfxHandle handle() const { return handle_; }

private:
    nvEfxHandle handle_ = nullptr;
    int32_t effectId_ = -1;
};

/** The speed/pitch effect as the host drives it. */
class nvEfxPsts : public nvEfx
{
};

/** Kept as a step of the family; adds nothing. */
class nvEfxPstsMono : public nvEfxPsts
{
};

/** The speed/pitch effect with its own operations. */
class nvEfxPstsPoly : public nvEfxPstsMono
{
public:
    /** create(102, source). */
    // [ui thread, device stopped]
    bool createPsts(nvEfxSource* source);
    /** process with instance 0. */
    // [audio thread]
    int32_t processBlock(float** channels, int64_t position, int32_t count);
    /** @param stretch output time over source time: 1 / speed */
    // [ui thread]
    int32_t setStretch(float stretch);
    /** @param factor 2 to the power of minus the semitones over 12 */
    // [ui thread]
    int32_t setPitch(float factor);
};
