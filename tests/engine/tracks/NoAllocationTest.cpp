#include "tests/engine/tracks/TrackRig.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <new>
#include <thread>

// Counts the allocations made by the C++ allocator while the engine runs a block on this thread: the
// audio thread's promise that nothing allocates, kept through the whole track chain.

namespace
{

thread_local bool tCounting = false;
std::atomic<int64_t> gAllocations{0};

void* allocate(std::size_t size, std::size_t alignment)
{
    if (tCounting)
    {
        gAllocations.fetch_add(1, std::memory_order_relaxed);
    }
    if (size == 0)
    {
        size = 1;
    }
    if (alignment <= alignof(std::max_align_t))
    {
        return std::malloc(size);
    }
    const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
    return std::aligned_alloc(alignment, rounded);
}

} // namespace

void* operator new(std::size_t size)
{
    void* p = allocate(size, alignof(std::max_align_t));
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* p = allocate(size, static_cast<std::size_t>(alignment));
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return operator new(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}

using namespace tracktest;

namespace
{

float tone(int64_t i)
{
    return static_cast<float>(0.3 * std::sin(static_cast<double>(i) * 0.05));
}

class NoAllocationTest : public ::testing::TestWithParam<int32_t>
{
};

} // namespace

TEST_P(NoAllocationTest, StreamedPlaybackWithSpeedAndPitchAllocatesNothingPerBlock)
{
    const int32_t fileRate = GetParam();
    gAllocations.store(0);
    TempFolder folder;
    TrackRig rig(48000, 128);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Manager& manager = rig.manager();
    const std::string path = folder.file("tone.wav");
    ASSERT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, fileRate, fileRate * 30, tone, tone));
    ASSERT_TRUE(manager.loadTrack(0, epiPath(path)));
    Track& track = manager.trackNode(0);
    track.setSpeed(0.8f);
    track.setPitch(2.0f);
    manager.start();
    // Ten seconds of blocks, paced so the disk thread keeps the ring full, and a jump half way.
    int64_t counted = 0;
    for (int b = 0; b < 3750; ++b)
    {
        if (b == 1800)
        {
            manager.locate(300000);
        }
        tCounting = true;
        rig.harness().runBlock(128);
        tCounting = false;
        counted += 1;
        if (b % 16 == 0)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    EXPECT_EQ(counted, 3750);
    EXPECT_EQ(gAllocations.load(), 0) << "allocations on the audio thread while playing";
    EXPECT_FALSE(track.recorder().isOpen());
}

INSTANTIATE_TEST_SUITE_P(FileRates, NoAllocationTest, ::testing::Values(48000, 44100, 96000));

TEST(NoAllocationTakeTest, RecordingATakeAllocatesNothingPerBlock)
{
    gAllocations.store(0);
    TempFolder folder;
    TrackRig rig(48000, 256);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Track& track = rig.track();
    track.setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(folder.file("take.aif"))));
    rig.manager().start();
    // Past two buffer changes of the recorder, with the overview fed from every block.
    for (int b = 0; b < 1000; ++b)
    {
        tCounting = true;
        rig.harness().runBlock(256);
        tCounting = false;
        while (track.recorder().pendingBuffers() > 1)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    EXPECT_GE(track.recorder().buffersHandedOver(), 2);
    EXPECT_EQ(gAllocations.load(), 0) << "allocations on the audio thread while recording";
    EXPECT_TRUE(rig.stopTake()) << track.takeErrorText();
}
