#include "plugin/AudioFxKV3Plugin.h"

#include "host/settings/SettingsStore.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace
{

AudioFxKV3MessageSink* gDefaultSink = nullptr;

struct SearchFolders
{
    bool replaced = false;
    std::vector<std::string> folders;
};

SearchFolders& searchFolders()
{
    static SearchFolders folders;
    return folders;
}

} // namespace

AudioFxKV3Plugin::AudioFxKV3Plugin(AudioFxKV3MessageSink* sink) : sink_(sink)
{
    if (loadPlugin(kProductName) && plugin_ != nullptr)
    {
        service_ = plugin_->getService(plugin_);
    }
}

AudioFxKV3Plugin::AudioFxKV3Plugin(AudioFxKV3MessageSink* sink, const epiText& path) : sink_(sink)
{
    if (loadFrom(path) && plugin_ != nullptr)
    {
        service_ = plugin_->getService(plugin_);
    }
}

AudioFxKV3Plugin::~AudioFxKV3Plugin()
{
    unload();
}

void AudioFxKV3Plugin::setDefaultSink(AudioFxKV3MessageSink* sink)
{
    gDefaultSink = sink;
}

std::vector<std::string> AudioFxKV3Plugin::defaultFolders()
{
    std::vector<std::string> folders;
    const std::string program = DynamicLibrary::programFolder();
    if (!program.empty())
    {
        folders.push_back(program + "/../lib/korvalind3");
    }
#ifdef KV3_BUILD_PLUGIN_DIR
    folders.push_back(KV3_BUILD_PLUGIN_DIR);
#endif
    return folders;
}

void AudioFxKV3Plugin::setSearchFolders(std::vector<std::string> folders)
{
    searchFolders().replaced = true;
    searchFolders().folders = std::move(folders);
}

bool AudioFxKV3Plugin::findLibrary(const char* productName, epiText& path)
{
    Korvalind3Host::SettingsStore store("Norvane Audio", productName);
    std::string value;
    if (store.readString("VPA2Path", value) && !value.empty())
    {
        path = value;
        return true;
    }
    if (const char* env = std::getenv("KV3_VPA2_PATH"); env != nullptr && *env != '\0')
    {
        path = env;
        return true;
    }
    const SearchFolders& search = searchFolders();
    for (const auto& folder : search.replaced ? search.folders : defaultFolders())
    {
        std::error_code ec;
        const auto candidate = std::filesystem::path(folder) / kLibraryName;
        if (std::filesystem::is_regular_file(candidate, ec))
        {
            path = std::filesystem::weakly_canonical(candidate, ec).string();
            if (ec)
            {
                path = candidate.string();
            }
            return true;
        }
    }
    return false;
}

bool AudioFxKV3Plugin::fail(const char* title, const epiText& text)
{
    lastTitle_ = title;
    lastText_ = text;
    AudioFxKV3MessageSink* sink = sink_ != nullptr ? sink_ : gDefaultSink;
    if (sink != nullptr)
    {
        sink->showMessage(lastTitle_, lastText_);
    }
    return false;
}

bool AudioFxKV3Plugin::loadPlugin(const char* productName)
{
    unload();
    epiText path;
    if (!findLibrary(productName, path))
    {
        return fail("Registry error", "Please ensure this product has been installed properly");
    }
    return loadFrom(path);
}

bool AudioFxKV3Plugin::loadFrom(const epiText& path)
{
    unload();
    lastTitle_.clear();
    lastText_.clear();
    lastDetail_.clear();
    path_ = path;

    auto library = std::make_unique<NV::VPA2::Library>();
    if (!library->module.open(path.c_str()))
    {
        lastDetail_ = library->module.error();
        epiText text("Can't load ");
        text += path;
        return fail("DLL error", text);
    }
    library->acquire = reinterpret_cast<NV::VPA2::AcquireFunction>(library->module.symbol("VPA2Acquire"));
    if (library->acquire == nullptr)
    {
        // The library is closed as `library` goes.
        return fail("DLL error", "Can't find VPA2Acquire function");
    }
    library->release = reinterpret_cast<NV::VPA2::ReleaseFunction>(library->module.symbol("VPA2Release"));
    if (library->release == nullptr)
    {
        return fail("DLL error", "Can't find VPA2Release function");
    }

    std::int32_t version = 0;
    NV::VPA2::PluginTable* root = library->acquire(NV::VPA2::kVersion, &version);
    pluginVersion_ = version;
    if (root == nullptr)
    {
        return fail("VPA compatibility error", "VPA PlugIn rejected VPA Host");
    }
    if (version != NV::VPA2::kVersion)
    {
        library->release();
        return fail("VPA compatibility error", "VPA Host rejected VPA PlugIn");
    }
    plugin_ = root;
    library_ = std::move(library);
    return true;
}

void AudioFxKV3Plugin::unload()
{
    if (plugin_ != nullptr && library_ != nullptr && library_->release != nullptr)
    {
        library_->release();
    }
    plugin_ = nullptr;
    service_ = nullptr;
    library_.reset();
}

bool AudioFxKV3Plugin::getTimeInfo(float* tempo, double* a, double* b)
{
    if (tempo != nullptr)
    {
        *tempo = tempo_.load(std::memory_order_relaxed);
    }
    if (a != nullptr)
    {
        *a = timeA_.load(std::memory_order_relaxed);
    }
    if (b != nullptr)
    {
        *b = timeB_.load(std::memory_order_relaxed);
    }
    return true;
}

void AudioFxKV3Plugin::setTransport(float tempo, double a, double b)
{
    tempo_.store(tempo, std::memory_order_relaxed);
    timeA_.store(a, std::memory_order_relaxed);
    timeB_.store(b, std::memory_order_relaxed);
}
