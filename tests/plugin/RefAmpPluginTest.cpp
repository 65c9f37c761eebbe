// Our amp as the host sees it: the real library loaded with dlopen, run through an effect unit.

#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Unit.h"
#include "tests/dsp/stretch/StretchTestNodes.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(RefAmpPlugin, PlaysAToneThroughAUnit)
{
    kv3test::RecordingSink sink;
    AudioFxKV3Manager manager(&sink, KV3_REFAMP);
    stretchtest::SignalNode tone(1LL << 40, stretchtest::sine(440.0, 48000.0, 0.25f));
    AudioFxKV3Unit unit;
    unit.setManager(&manager);
    unit.setSource(&tone);
    unit.prepare(48000, 128);
    unit.setEnabled(true);
    ASSERT_TRUE(unit.hasInstance());
    double rms = 0.0;
    for (std::int64_t position = 0; position < 48000; position += 128)
    {
        AudioData request;
        request.frames = 128;
        request.position = position;
        request.channels = 2;
        ASSERT_TRUE(unit.provide(request));
        unit.noteTick();
        for (std::int64_t i = 0; i < 128; ++i)
        {
            ASSERT_TRUE(std::isfinite(request.channel[0][i]));
            rms += position >= 24000 ? double(request.channel[0][i]) * request.channel[0][i] : 0.0;
        }
    }
    rms = std::sqrt(rms / 24000.0);
    EXPECT_GT(rms, 0.01);
    EXPECT_LT(rms, 1.0);
    kv3test::disableWhileTicking(unit);
}
