#include "plugin/AudioFxKV3Manager.h"

AudioFxKV3Manager::AudioFxKV3Manager(AudioFxKV3MessageSink* sink)
    : plugin_(std::make_unique<AudioFxKV3Plugin>(sink))
{
}

AudioFxKV3Manager::AudioFxKV3Manager(AudioFxKV3MessageSink* sink, const epiText& path)
    : plugin_(std::make_unique<AudioFxKV3Plugin>(sink, path))
{
}

AudioFxKV3Manager::~AudioFxKV3Manager() = default;

void AudioFxKV3Manager::setTransport(float tempo, double a, double b)
{
    plugin_->setTransport(tempo, a, b);
}

void AudioFxKV3Manager::setDelegate(AudioFxKV3ManagerDelegate* delegate)
{
    plugin_->setDelegate(delegate);
}

void AudioFxKV3Manager::audioSuspended()
{
    if (NV::VPA2::ServiceTable* service = plugin_->service(); service != nullptr)
    {
        service->audioSuspended(service);
    }
}

void AudioFxKV3Manager::audioResumed()
{
    if (NV::VPA2::ServiceTable* service = plugin_->service(); service != nullptr)
    {
        service->audioResumed(service);
    }
}
