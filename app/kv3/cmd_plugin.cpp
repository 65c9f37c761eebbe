// kv3 plugin probe: loads an amplifier library as the program does and puts it through its paces.

#include "app/kv3/Cli.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "epi/epiFileDump.h"
#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Unit.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 plugin probe [PATH] [--rate HZ] [--block FRAMES]\n"
    "\n"
    "Loads an amplifier library (PATH, or the one the settings name: the value VPA2Path, then\n"
    "$KV3_VPA2_PATH, then the library installed with the program) and runs it as a track would:\n"
    "the handshake, an instance, one second of silence, one second of a 440 Hz tone, and a save\n"
    "and restore of its state. Prints each step's result; a failure of the load prints the\n"
    "message the program would show.\n"
    "--rate   sample rate in hertz (default 48000)\n"
    "--block  frames per block (default 256)\n";

/** Prints the program's messages as one line each on stderr. */
class PrintingSink : public AudioFxKV3MessageSink
{
public:
    void showMessage(const epiText& title, const epiText& text) override
    {
        std::fprintf(stderr, "kv3: %s: %s\n", title.c_str(), text.c_str());
        ++count;
    }
    int count = 0;
};

/** A sine of `hz` at `level` (linear) on both channels, or silence for 0 Hz. */
class ToneSource : public AudioSource
{
public:
    ToneSource(double rate, double hz, float level) : rate_(rate), hz_(hz), level_(level) {}
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (std::int64_t i = 0; i < into.frames; ++i)
        {
            const double t = static_cast<double>(into.position + i) / rate_;
            const float v =
                hz_ > 0.0 ? level_ * static_cast<float>(std::sin(2.0 * 3.14159265358979 * hz_ * t)) : 0.0f;
            into.channel[0][i] = v;
            into.channel[1][i] = v;
        }
        return true;
    }
    void prepare(std::uint32_t, std::uint32_t) override {}

private:
    double rate_;
    double hz_;
    float level_;
};

struct Levels
{
    bool finite = true;
    double peak = 0.0;
    double rms = 0.0;
};

/** Pulls one second through the unit, as the engine does, and measures what comes out. */
Levels runSecond(AudioFxKV3Unit& unit, AudioSource& source, std::uint32_t rate, std::uint32_t block)
{
    unit.setSource(&source);
    Levels levels;
    double sum = 0.0;
    std::int64_t count = 0;
    for (std::int64_t position = 0; position < rate; position += block)
    {
        AudioData request;
        request.frames = std::min<std::int64_t>(block, rate - position);
        request.position = position;
        request.channels = 2;
        unit.provide(request);
        unit.noteTick();
        for (int c = 0; c < 2; ++c)
        {
            for (std::int64_t i = 0; i < request.frames; ++i)
            {
                const double v = request.channel[c][i];
                if (!std::isfinite(v))
                {
                    levels.finite = false;
                    continue;
                }
                levels.peak = std::max(levels.peak, std::fabs(v));
                sum += v * v;
                ++count;
            }
        }
    }
    levels.rms = count > 0 ? std::sqrt(sum / static_cast<double>(count)) : 0.0;
    return levels;
}

std::string dbText(double linear)
{
    if (linear <= 1e-10)
    {
        return "-inf dB";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dB", 20.0 * std::log10(linear));
    return text;
}

/** Switches the unit off with blocks still being counted, so that it needn't wait a second. */
void disable(AudioFxKV3Unit& unit)
{
    std::atomic<bool> running{true};
    std::thread ticker(
        [&]
        {
            while (running.load(std::memory_order_relaxed))
            {
                unit.noteTick();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    unit.setEnabled(false);
    running.store(false, std::memory_order_relaxed);
    ticker.join();
}

int probe(const kv3cli::Args& args)
{
    std::uint32_t rate = 48000;
    std::uint32_t block = 256;
    if (auto value = args.value("rate"))
    {
        const auto parsed = kv3cli::parseInt(*value);
        if (!parsed || *parsed < 8000 || *parsed > 384000)
        {
            return kv3cli::usageError("plugin",
                                      "--rate must be a sample rate from 8000 to 384000 Hz, not " + *value);
        }
        rate = static_cast<std::uint32_t>(*parsed);
    }
    if (auto value = args.value("block"))
    {
        const auto parsed = kv3cli::parseInt(*value);
        if (!parsed || *parsed < 1 || *parsed > 8192)
        {
            return kv3cli::usageError("plugin", "--block must be from 1 to 8192 frames, not " + *value);
        }
        block = static_cast<std::uint32_t>(*parsed);
    }
    if (args.positional().size() > 2)
    {
        return kv3cli::usageError("plugin", "probe takes at most one PATH");
    }

    PrintingSink sink;
    std::unique_ptr<AudioFxKV3Manager> manager =
        args.positional().size() == 2 ? std::make_unique<AudioFxKV3Manager>(&sink, args.positional()[1])
                                      : std::make_unique<AudioFxKV3Manager>(&sink);
    AudioFxKV3Plugin& plugin = manager->plugin();
    std::printf("library:   %s\n", plugin.path().empty() ? "(none found)" : plugin.path().c_str());
    if (!manager->isLoaded())
    {
        // The message itself went to stderr through the sink, as the window would show it.
        std::printf("handshake: failed, %s: %s%s%s\n", plugin.lastTitle().c_str(), plugin.lastText().c_str(),
                    plugin.lastDetail().empty() ? "" : " - ", plugin.lastDetail().c_str());
        return kv3cli::kFailure;
    }
    std::printf("handshake: ok, version %d both ways\n", plugin.pluginVersion());
    std::printf("service:   %s\n", plugin.service() != nullptr ? "ok" : "none");

    AudioFxKV3Unit unit;
    unit.setManager(manager.get());
    ToneSource silence(rate, 0.0, 0.0f);
    unit.setSource(&silence);
    unit.prepare(rate, block);
    unit.setEnabled(true);
    if (!unit.hasInstance())
    {
        std::printf("instance:  failed, the library gave no instance\n");
        std::fprintf(stderr, "kv3: %s: createInstance gave no instance\n", plugin.path().c_str());
        disable(unit);
        return kv3cli::kFailure;
    }
    std::printf("instance:  ok, %u Hz, blocks of %u frames, warmed up\n", rate, block);

    bool ok = true;
    const Levels quiet = runSecond(unit, silence, rate, block);
    std::printf("silence:   %s, peak %s\n", quiet.finite ? "ok" : "FAILED (not finite)",
                dbText(quiet.peak).c_str());
    ok = ok && quiet.finite;

    ToneSource tone(rate, 440.0, 0.25f);
    const Levels played = runSecond(unit, tone, rate, block);
    const bool toneOk = played.finite && played.rms > 1e-5;
    std::printf("tone:      %s, 440 Hz at -12 dB in, peak %s, rms %s out\n",
                toneOk ? "ok" : (played.finite ? "FAILED (silent)" : "FAILED (not finite)"),
                dbText(played.peak).c_str(), dbText(played.rms).c_str());
    ok = ok && toneOk;

    epiFileDump saved;
    unit.saveState(saved);
    epiFileDump again;
    unit.loadState(saved);
    unit.saveState(again);
    const bool stateOk = !saved.differs(again);
    std::printf("state:     %s, %u bytes saved and restored%s\n", stateOk ? "ok" : "FAILED", saved.size(),
                stateOk ? "" : ", but the library gave back different bytes");
    ok = ok && stateOk;
    std::printf("program:   %s\n",
                unit.isStateChanged() ? "changed after restore (unexpected)" : "unchanged");

    disable(unit);
    std::printf("released:  ok\n");
    if (!ok)
    {
        return kv3cli::fail(std::string(plugin.path().c_str()) + ": the library failed a step of the probe");
    }
    return kv3cli::kOk;
}

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"rate", "block"}, {}))
    {
        return kv3cli::usageError("plugin", args.error());
    }
    if (args.help())
    {
        return kv3cli::printUsage(kv3cli::commands().at("plugin"));
    }
    if (args.positional().empty())
    {
        return kv3cli::usageError("plugin", "needs a subcommand: probe");
    }
    if (args.positional()[0] != "probe")
    {
        return kv3cli::usageError("plugin", "unknown subcommand " + args.positional()[0]);
    }
    return probe(args);
}

kv3cli::Register reg{kv3cli::Command{"plugin", "loads an amplifier library and probes it", kUsage, run}};

} // namespace
