#include "plugin/AudioFxKV3Instance.h"

#include "epi/epiFileDump.h"
#include "plugin/AudioFxKV3Plugin.h"

AudioFxKV3Instance::AudioFxKV3Instance(AudioFxKV3Plugin* plugin) : plugin_(plugin) {}

AudioFxKV3Instance::~AudioFxKV3Instance()
{
    if (editorOpen_ && editor_ != nullptr)
    {
        editor_->close(editor_);
        editorOpen_ = false;
    }
    if (instance_ != nullptr)
    {
        instance_->stop(instance_);
        instance_->terminate(instance_);
        NV::VPA2::PluginTable* root = plugin_ != nullptr ? plugin_->plugin() : nullptr;
        if (root != nullptr)
        {
            root->releaseInstance(root, instance_);
        }
        instance_ = nullptr;
    }
}

bool AudioFxKV3Instance::create()
{
    NV::VPA2::PluginTable* root = plugin_ != nullptr ? plugin_->plugin() : nullptr;
    if (root == nullptr)
    {
        return false;
    }
    root->prepare(root);
    instance_ = root->createInstance(root, plugin_->table(), 0);
    if (instance_ != nullptr)
    {
        instance_->setInputChannels(instance_, 2);
        instance_->setOutputChannels(instance_, 2);
        instance_->initialise(instance_);
    }
    return instance_ != nullptr;
}

void AudioFxKV3Instance::startInstance(std::uint32_t sampleRate, std::uint32_t blockSize,
                                       std::int32_t channels)
{
    if (instance_ == nullptr)
    {
        return;
    }
    instance_->setBlockSize(instance_, static_cast<std::int32_t>(blockSize), NV::VPA2::kMaxMidiBatch);
    instance_->setSampleRate(instance_, static_cast<float>(sampleRate));
    instance_->setInputChannels(instance_, channels);
    instance_->setOutputChannels(instance_, channels);
    instance_->start(instance_);
    started_ = true;
}

void AudioFxKV3Instance::stopInstance()
{
    if (started_ && instance_ != nullptr)
    {
        instance_->stop(instance_);
    }
    started_ = false;
}

void AudioFxKV3Instance::setState(const void* data, std::uint32_t size)
{
    if (instance_ != nullptr && data != nullptr && size != 0)
    {
        instance_->setState(instance_, data, static_cast<std::int32_t>(size));
    }
}

bool AudioFxKV3Instance::captureState(epiFileDump& file)
{
    file.free();
    if (instance_ == nullptr)
    {
        return false;
    }
    void* data = nullptr;
    const std::int32_t size = instance_->getState(instance_, &data);
    if (data == nullptr || size <= 0)
    {
        return false;
    }
    file.copyBytes(data, static_cast<std::uint32_t>(size));
    instance_->freeState(instance_);
    return true;
}

bool AudioFxKV3Instance::process(float* const* inputs, float* const* outputs, std::int32_t frames)
{
    if (instance_ == nullptr)
    {
        return false;
    }
    std::int32_t flags = 0;
    instance_->process(instance_, inputs, outputs, frames, &flags);
    return true;
}

void AudioFxKV3Instance::sendMidiEvents(const std::uint32_t* words, std::int32_t count)
{
    if (instance_ == nullptr || words == nullptr)
    {
        return;
    }
    std::int32_t filled = 0;
    for (std::int32_t i = 0; i < count; ++i)
    {
        // Only the first eight bytes of a record are the host's; the rest stay as they were.
        batch_[filled].position = words[2 * i];
        batch_[filled].message = words[2 * i + 1];
        if (++filled == NV::VPA2::kMaxMidiBatch)
        {
            instance_->sendMidi(instance_, batch_, filled);
            filled = 0;
        }
    }
    if (filled > 0)
    {
        instance_->sendMidi(instance_, batch_, filled);
    }
}

void AudioFxKV3Instance::openEditor(WindowHandle parent)
{
    if (editorOpen_ && editor_ != nullptr)
    {
        editor_->close(editor_);
        editorOpen_ = false;
    }
    NV::VPA2::PluginTable* root = plugin_ != nullptr ? plugin_->plugin() : nullptr;
    if (editor_ == nullptr && root != nullptr && instance_ != nullptr)
    {
        editor_ = root->createEditor(root, instance_);
    }
    if (editor_ != nullptr)
    {
        std::int32_t width = 0;
        std::int32_t height = 0;
        editor_->getSize(editor_, &width, &height);
        editor_->setPosition(editor_, 0, 0);
        parent_ = parent;
        editor_->open(editor_, &parent_);
        editorOpen_ = true;
    }
}

void AudioFxKV3Instance::closeEditor()
{
    if (editorOpen_ && editor_ != nullptr)
    {
        editor_->close(editor_);
    }
    editorOpen_ = false;
}
