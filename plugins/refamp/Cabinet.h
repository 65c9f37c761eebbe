#pragma once

#include <vector>

namespace refamp
{

/**
 * The impulse response of the amp's speaker cabinet, designed here from filters rather than
 * measured: a closed-back 1x12 voiced by a low resonance, a cut in the boxy mids, the speaker's
 * presence peak and cone break-up notch, a steep roll-off above 5 kHz, and two short reflections of
 * the cabinet's back wall. Its level is 0 dB at 1 kHz.
 *
 * @param rate sample rate in Hz
 * @returns about 21 ms of response (a multiple of 64 samples)
 */
std::vector<float> designCabinet(double rate);

} // namespace refamp
