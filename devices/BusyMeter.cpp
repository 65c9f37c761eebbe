#include "devices/BusyMeter.h"

#include <algorithm>
#include <chrono>

namespace Korvalind3Host
{

BusyMeter::BusyMeter()
{
    reset();
}

std::int64_t BusyMeter::nowMicroseconds()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void BusyMeter::clear()
{
    std::fill(std::begin(history_), std::end(history_), 0.0f);
    historyIndex_ = 0;
    historySum_ = 0.0f;
    settleCount_ = 0;
    shownPercent_ = 0;
    holdBlocks_ = 0;
    fallStep_ = 1;
    forceRefresh_ = true;
    busyPercent_.store(0, std::memory_order_relaxed);
}

void BusyMeter::setBlock(std::uint32_t frames, std::uint32_t sampleRate)
{
    blockMicroseconds_ =
        sampleRate ? static_cast<float>(frames) / static_cast<float>(sampleRate) * 1000000.0f : 1.0f;
    clear();
}

void BusyMeter::reset()
{
    blockMicroseconds_ = 1.0f;
    clear();
}

void BusyMeter::addBlock(float elapsedMicroseconds)
{
    historyIndex_ = (historyIndex_ + 1) % kHistory;
    // Deliberately the entry after the new one, not the one about to be overwritten: the sum
    // covers 31 blocks and is divided by 32, which is the meter's calibrated reading.
    historySum_ -= history_[(historyIndex_ + 1) % kHistory];
    const float percent = std::min(elapsedMicroseconds / blockMicroseconds_ * 100.0f, 100.0f);
    history_[historyIndex_] = percent;
    historySum_ += percent;
    busyPercent_.store(static_cast<int>(historySum_ * 0.03125f), std::memory_order_relaxed);
}

bool BusyMeter::readBusyLevel(int* percent)
{
    const int v = busyPercent_.load(std::memory_order_relaxed);
    int& s = shownPercent_;
    bool changed = false;
    if (v == s)
    {
    }
    else if (v > s + 1)
    {
        s = v;
        fallStep_ = 1;
        holdBlocks_ = kHoldBlocks;
        changed = true;
    }
    else if (v >= s - 1)
    {
        // A difference of one point flickers: it is shown only when it has lasted.
        if (settleCount_ < kSettleCalls)
        {
            ++settleCount_;
        }
        else
        {
            settleCount_ = 0;
            s = v;
            holdBlocks_ = kHoldBlocks;
            changed = true;
        }
    }
    else if (holdBlocks_ != 0)
    {
        --holdBlocks_;
    }
    else
    {
        s -= fallStep_;
        ++fallStep_;
        if (v > s)
        {
            fallStep_ = 1;
            s = v;
        }
        holdBlocks_ = kHoldBlocks;
        changed = true;
    }
    if (percent)
    {
        *percent = s;
    }
    if (forceRefresh_)
    {
        forceRefresh_ = false;
        changed = true;
    }
    return changed;
}

} // namespace Korvalind3Host
