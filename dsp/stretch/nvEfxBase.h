#pragma once

#include <cstdint>

/**
 * How an effect asks for its input: fill the given channels with count frames from position.
 * @param user the word registered with the callback
 * @return frames delivered
 */
using nvEfxPullCallback = int32_t (*)(void* user, float** channels, int64_t position, int32_t count);

/** Effect ids of the flat table's create. */
enum nvEfxId : int32_t
{
    kEfxPstsPoly = 102,
    kEfxBypass = 103,
};

/**
 * Base of the effects behind the flat function table. An effect works on planar channels and pulls
 * its input through a callback, so it knows nothing of the graph it sits in.
 */
class nvEfxBase
{
public:
    virtual ~nvEfxBase() = default;

    virtual int32_t effectId() const = 0;
    /** @return 1 when the parameter was taken, 0 otherwise */
    // [any thread]
    virtual int32_t setParameter(int32_t id, float value);
    /** @return 1 with value set when the parameter exists, 0 otherwise */
    virtual int32_t getParameter(int32_t id, float* value);
    /** A spare query; 0. */
    virtual int32_t ask(intptr_t a, intptr_t b, intptr_t c);
    /**
     * Writes count frames at an output position into channels.
     * @param instance which instance of the effect; 0
     * @return 1 when processed
     */
    // [audio thread]
    virtual int32_t process(int32_t instance, float** channels, int64_t position, int32_t count);
    /** Registers the input. */
    // [ui thread, device stopped]
    virtual void setCallback(void* user, nvEfxPullCallback callback);
    /**
     * Pulls count frames of input at a source position through the callback.
     * @return the callback's answer, or 0 without a callback
     */
    // [audio thread]
    virtual int32_t pull(float** channels, int64_t position, int32_t count);
    /** Builds the effect's engine from the parameters set so far; allocates. */
    // [ui thread, device stopped]
    virtual int32_t initialise();

protected:
    nvEfxBase() = default;

    nvEfxPullCallback callback_ = nullptr;
    void* user_ = nullptr;
};

/** The effect that passes its input through untouched. */
class nvEfxBypass final : public nvEfxBase
{
public:
    int32_t effectId() const override { return kEfxBypass; }
    /** Pulls the input straight into channels; 1. */
    // [audio thread]
    int32_t process(int32_t instance, float** channels, int64_t position, int32_t count) override;
    int32_t initialise() override { return 1; }
};
