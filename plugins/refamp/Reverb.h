#pragma once

#include <vector>

namespace refamp
{

/**
 * A small room: four delay lines of 24 to 44 ms in a feedback network mixed by a Householder
 * matrix, each line damped by a one-pole low-pass, decaying by 60 dB in about 0.7 s. The lines are
 * fed with the sum of both channels and read out two to a side, so the tail is wide.
 */
class Reverb
{
public:
    void prepare(double rate);
    void reset();
    /** Adds `mix` times the room to each channel, in place. */
    void process(float* left, float* right, int frames, float mix);

private:
    static constexpr int kLines = 4;
    std::vector<float> lines_[kLines];
    int lengths_[kLines] = {};
    int positions_[kLines] = {};
    float feedback_[kLines] = {};
    float damping_[kLines] = {};
    float dampCoefficient_ = 0.0f;
};

} // namespace refamp
