#include "app/kv3/StretchQuality.h"

#include "engine/Manager.h"
#include "host/settings/HostSettings.h"

namespace kv3cli
{

bool chooseQuality(const Args& args, StretchQuality& quality, std::string& error)
{
    if (auto value = args.value("quality"))
    {
        if (*value == "standard")
        {
            quality = StretchQuality::standard;
            return true;
        }
        if (*value == "high")
        {
            quality = StretchQuality::high;
            return true;
        }
        error = "--quality must be standard or high, not '" + *value + "'";
        return false;
    }
    // A load that fails leaves the choice at Standard, as a first run has it.
    Korvalind3Host::HostSettings settings;
    settings.load();
    quality = settings.highQualityStretch() ? StretchQuality::high : StretchQuality::standard;
    return true;
}

void applyQuality(Manager& manager, StretchQuality quality)
{
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        manager.trackNode(i).setStretchQuality(quality);
    }
}

} // namespace kv3cli
