// kv3 devices: lists each audio technology with its devices, what each device allows, and the
// MIDI inputs.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "devices/MPAudio.h"
#include "devices/MPMidi.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 devices [--json] [--technology NAME]\n"
    "\n"
    "Lists each audio technology (ALSA, JACK) with its input and output devices,\n"
    "their channel names, sample rates, buffer sizes and latency in frames, then\n"
    "the MIDI inputs. --technology NAME lists only that one (the names DirectX and\n"
    "ASIO select ALSA and JACK). A technology that wasn't built is listed as such;\n"
    "a JACK server that doesn't run shows its device with no channels.\n"
    "--json prints {\"technologies\": [{\"name\", \"built\", \"devices\": [{\"name\",\n"
    "\"direction\", \"channels\", \"channel_names\", \"sample_rates\", \"buffer_sizes\",\n"
    "\"fixed_buffer_size\", \"latency\", \"latency_ms\", \"available\"}], \"round_trip\":\n"
    "{\"frames\", \"ms\"}}], \"midi_inputs\": [...]}. The round trip is what a take is placed by:\n"
    "the first input's latency plus the first output's, where the technology tells them\n"
    "before a device is open (JACK does, ALSA only once it runs).\n";

struct DeviceReport
{
    std::string name;
    bool input = false;
    std::uint32_t channels = 0;
    bool available = false; ///< the device answered a query
    std::vector<std::string> channelNames;
    std::vector<std::uint32_t> sampleRates;
    std::vector<std::uint32_t> bufferSizes;
    bool fixedBufferSize = false;
    std::uint32_t latency = 0;

    /** The latency in milliseconds at the device's first rate, 0 when it lists none. */
    double latencyMs() const
    {
        return sampleRates.empty() ? 0.0 : milliseconds(latency, sampleRates.front());
    }
    static double milliseconds(std::uint32_t frames, std::uint32_t rate)
    {
        // To a tenth of a millisecond, as the figure is shown.
        return std::round(static_cast<double>(frames) * 10000.0 / rate) / 10.0;
    }
};

struct TechnologyReport
{
    std::string name;
    bool built = false;
    std::vector<DeviceReport> devices;

    /** The first answering input and output device of the list, or null. */
    const DeviceReport* first(bool input) const
    {
        for (const DeviceReport& device : devices)
        {
            if (device.input == input && device.available)
            {
                return &device;
            }
        }
        return nullptr;
    }
};

TechnologyReport survey(int index)
{
    TechnologyReport report;
    report.name = MPAudio::driverName(index);
    MPAudio audio;
    report.built = audio.selectDriver(index);
    if (!report.built)
    {
        return report;
    }
    audio.enumerateDevices(false);
    for (bool input : {false, true})
    {
        const std::vector<MPAudioDevice> list = input ? audio.inputDevices() : audio.outputDevices();
        for (std::size_t i = 0; i < list.size(); ++i)
        {
            DeviceReport device;
            device.name = list[i].name;
            device.input = input;
            device.channels = list[i].channels;
            std::vector<MPAudioChannelName> names;
            device.available = audio.queryDevice(static_cast<int>(i), input, &device.bufferSizes, &names,
                                                 &device.sampleRates, &device.fixedBufferSize, nullptr,
                                                 nullptr, &device.latency);
            for (const MPAudioChannelName& name : names)
            {
                device.channelNames.emplace_back(name.name);
            }
            report.devices.push_back(std::move(device));
        }
    }
    return report;
}

std::string joinNumbers(const std::vector<std::uint32_t>& numbers)
{
    std::string text;
    for (std::uint32_t n : numbers)
    {
        text += (text.empty() ? "" : ", ") + std::to_string(n);
    }
    return text.empty() ? "-" : text;
}

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"technology"}, {"json"}))
    {
        return kv3cli::usageError("devices", args.error());
    }
    if (args.help())
    {
        return kv3cli::printUsage(kv3cli::commands().at("devices"));
    }
    if (!args.positional().empty())
    {
        return kv3cli::usageError("devices", "unexpected argument '" + args.positional().front() + "'");
    }
    std::vector<int> indices;
    if (auto technology = args.value("technology"))
    {
        const int index = MPAudio::driverIndex(technology->c_str());
        if (index < 0)
        {
            return kv3cli::usageError("devices", "unknown technology '" + *technology +
                                                     "' (ALSA, JACK, DirectX or ASIO)");
        }
        indices.push_back(index);
    }
    else
    {
        for (int i = 0; i < MPAudio::kDriverCount; ++i)
        {
            indices.push_back(i);
        }
    }

    std::vector<TechnologyReport> reports;
    for (int index : indices)
    {
        reports.push_back(survey(index));
    }
    MPMidi midi;
    midi.enumerateDevices(false);
    std::vector<std::string> midiInputs;
    for (const MPMidiDevice& device : midi.inputDevices())
    {
        midiInputs.emplace_back(device.name);
    }

    if (args.flag("json"))
    {
        kv3cli::JsonWriter json;
        json.beginObject().key("technologies").beginArray();
        for (const TechnologyReport& report : reports)
        {
            json.beginObject().key("name").value(report.name).key("built").value(report.built);
            json.key("devices").beginArray();
            for (const DeviceReport& device : report.devices)
            {
                json.beginObject();
                json.key("name").value(device.name);
                json.key("direction").value(device.input ? "input" : "output");
                json.key("channels").value(static_cast<std::int64_t>(device.channels));
                json.key("available").value(device.available);
                json.key("channel_names").beginArray();
                for (const std::string& name : device.channelNames)
                {
                    json.value(name);
                }
                json.endArray().key("sample_rates").beginArray();
                for (std::uint32_t rate : device.sampleRates)
                {
                    json.value(static_cast<std::int64_t>(rate));
                }
                json.endArray().key("buffer_sizes").beginArray();
                for (std::uint32_t size : device.bufferSizes)
                {
                    json.value(static_cast<std::int64_t>(size));
                }
                json.endArray();
                json.key("fixed_buffer_size").value(device.fixedBufferSize);
                json.key("latency").value(static_cast<std::int64_t>(device.latency));
                json.key("latency_ms").value(device.latencyMs());
                json.endObject();
            }
            json.endArray();
            const DeviceReport* in = report.first(true);
            const DeviceReport* out = report.first(false);
            if (in && out && in->latency > 0 && out->latency > 0 && !out->sampleRates.empty())
            {
                const std::uint32_t frames = in->latency + out->latency;
                json.key("round_trip").beginObject().key("frames").value(static_cast<std::int64_t>(frames));
                json.key("ms")
                    .value(DeviceReport::milliseconds(frames, out->sampleRates.front()))
                    .endObject();
            }
            json.endObject();
        }
        json.endArray().key("midi_inputs").beginArray();
        for (const std::string& name : midiInputs)
        {
            json.value(name);
        }
        json.endArray().endObject();
        std::printf("%s\n", json.str().c_str());
        return kv3cli::kOk;
    }

    for (const TechnologyReport& report : reports)
    {
        std::printf("%s%s\n", report.name.c_str(), report.built ? "" : " (not built)");
        if (report.built && report.devices.empty())
        {
            std::printf("  no devices\n");
        }
        for (const DeviceReport& device : report.devices)
        {
            std::printf("  %-6s %s: %u channels\n", device.input ? "input" : "output", device.name.c_str(),
                        device.channels);
            if (!device.available)
            {
                std::printf("         not available\n");
                continue;
            }
            std::string names;
            for (const std::string& name : device.channelNames)
            {
                names += (names.empty() ? "" : ", ") + name;
            }
            std::printf("         channels: %s\n", names.empty() ? "-" : names.c_str());
            std::printf("         sample rates: %s\n", joinNumbers(device.sampleRates).c_str());
            std::printf("         buffer sizes: %s%s\n", joinNumbers(device.bufferSizes).c_str(),
                        device.fixedBufferSize ? " (fixed)" : "");
            std::printf("         latency: %u frames (%.1f ms)\n", device.latency, device.latencyMs());
        }
    }
    std::printf("MIDI inputs\n");
    if (midiInputs.empty())
    {
        std::printf("  none\n");
    }
    for (const std::string& name : midiInputs)
    {
        std::printf("  %s\n", name.c_str());
    }
    return kv3cli::kOk;
}

const kv3cli::Register reg{
    kv3cli::Command{"devices", "list audio technologies, devices and MIDI inputs", kUsage, run}};

} // namespace
