#pragma once

#include <memory>

class MPAudioBase;

/**
 * The factories of the driver table. Each always exists; one whose backend wasn't built (its
 * library wasn't found) returns null, so the neutral code needs no knowledge of what was built.
 */
std::unique_ptr<MPAudioBase> newAlsaBackend();
/** The JACK backend, or null when it wasn't built. */
std::unique_ptr<MPAudioBase> newJackBackend();
