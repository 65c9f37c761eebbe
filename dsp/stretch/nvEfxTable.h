#pragma once

#include "dsp/stretch/nvEfxBase.h"

#include <cstdint>

/** An effect made by the table; null for none. */
using nvEfxHandle = nvEfxBase*;

/**
 * The flat table of functions through which the host reaches its effects, one effect per handle. It
 * keeps the effects' classes out of the host's code: the host sees ids and handles only.
 */
struct nvEfxFunctions
{
    /** 102 makes the speed/pitch effect, 103 a bypass; any other id gives null. Allocates. */
    nvEfxHandle (*create)(int32_t effectId);
    /** Deletes the effect; null is allowed. Returns 1. */
    int32_t (*destroy)(nvEfxHandle handle);
    int32_t (*setParameter)(nvEfxHandle handle, int32_t id, float value);
    int32_t (*getParameter)(nvEfxHandle handle, int32_t id, float* value);
    int32_t (*ask)(nvEfxHandle handle, intptr_t a, intptr_t b, intptr_t c);
    int32_t (*process)(nvEfxHandle handle, int32_t instance, float** channels, int64_t position,
                       int32_t count);
    int32_t (*initialise)(nvEfxHandle handle);
    /** Registers the input: the callback is called with user on every pull. */
    int32_t (*setSource)(nvEfxHandle handle, void* user, nvEfxPullCallback callback);
};

/** The table. Every function answers 0 for a null handle. */
const nvEfxFunctions& nvEfxTable();
