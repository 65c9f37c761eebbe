// Our amp as the host sees it: the real library loaded with dlopen, run through an effect unit.

#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Unit.h"
#include "plugins/refamp/Dsp.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

using kv3test::bytesOf;
using kv3test::ConfigFolder;
using kv3test::fillDump;
using kv3test::RecordingSink;

namespace
{

class Sine : public AudioSource
{
public:
    Sine(double rate, double hz, float level) : rate_(rate), hz_(hz), level_(level) {}
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (std::int64_t i = 0; i < into.frames; ++i)
        {
            const double t = static_cast<double>(into.position + i) / rate_;
            into.channel[0][i] = into.channel[1][i] =
                level_ * static_cast<float>(std::sin(2.0 * refamp::kPi * hz_ * t));
        }
        return true;
    }
    void prepare(std::uint32_t, std::uint32_t) override {}

private:
    double rate_, hz_;
    float level_;
};

/** Pulls `frames` frames of the left channel out of the unit into `out`. */
void pull(AudioFxKV3Unit& unit, std::int64_t start, std::int64_t frames, std::int64_t block,
          std::vector<float>& out)
{
    for (std::int64_t position = start; position < start + frames; position += block)
    {
        AudioData request;
        request.frames = std::min(block, start + frames - position);
        request.position = position;
        request.channels = 2;
        ASSERT_TRUE(unit.provide(request));
        out.insert(out.end(), request.channel[0], request.channel[0] + request.frames);
        unit.noteTick();
    }
}

struct AmpRig
{
    AmpRig() : manager(&sink, KV3_REFAMP) { unit.setManager(&manager); }
    AmpRig(const AmpRig&) = delete;
    AmpRig& operator=(const AmpRig&) = delete;
    ~AmpRig()
    {
        if (unit.isEnabled())
        {
            kv3test::disableWhileTicking(unit);
        }
    }
    RecordingSink sink;
    AudioFxKV3Manager manager;
    AudioFxKV3Unit unit;
};

} // namespace

TEST(RefAmpPlugin, PlaysAToneThroughAUnit)
{
    AmpRig rig;
    Sine tone(48000.0, 440.0, 0.25f);
    rig.unit.setSource(&tone);
    rig.unit.prepare(48000, 128);
    rig.unit.setEnabled(true);
    ASSERT_TRUE(rig.unit.hasInstance());
    std::vector<float> out;
    pull(rig.unit, 0, 48000, 128, out);
    double rms = 0.0;
    for (std::size_t i = 24000; i < out.size(); ++i)
    {
        ASSERT_TRUE(std::isfinite(out[i]));
        rms += double(out[i]) * out[i];
    }
    rms = std::sqrt(rms / 24000.0);
    EXPECT_GT(rms, 0.01);
    EXPECT_LT(rms, 1.0);
}
