#include "audiofiles/AudioFileLoaded.h"

#include "audiofiles/AudioFileGuess.h"

#include <algorithm>

AudioFileLoaded::~AudioFileLoaded() = default;

void AudioFileLoaded::prepare(uint32_t, uint32_t) {}

bool AudioFileLoaded::open(const epiPath&)
{
    return false;
}

uint64_t AudioFileLoaded::frames() const
{
    return buffer_.frames > 0 ? static_cast<uint64_t>(buffer_.frames) : 0;
}

bool AudioFileLoaded::provide(AudioData& request)
{
    int64_t count = 0;
    const int64_t position = request.position;
    if (position < 0 || !buffer_.available(position, request.frames, count) || count <= 0)
        return false;
    request.adopt(buffer_);
    request.advance(position - buffer_.position);
    request.position = position;
    request.frames = count;
    return true;
}

bool AudioFileLoaded::read(AudioData& into)
{
    const int64_t position = into.position;
    if (position < 0 || position >= buffer_.frames)
        return false;
    const int64_t count = std::min(into.frames, buffer_.frames - position);
    into.copyRangeFrom(buffer_, position, count);
    return true;
}

void AudioFileLoaded::loadFrom(const AudioData& data)
{
    buffer_.alloc(data.frames, data.channels);
    buffer_.frames = data.frames;
    buffer_.position = 0;
    buffer_.copyFrom(data);
}

bool AudioFileLoaded::load(const epiPath& path)
{
    AudioFileGuess file;
    if (!file.open(path))
        return false;
    buffer_.alloc(static_cast<int64_t>(file.frames()), file.channels());
    buffer_.frames = static_cast<int64_t>(file.frames());
    buffer_.position = 0;
    const bool good = file.read(buffer_);
    file.close();
    return good;
}

void AudioFileLoadedResampled::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    targetRate_ = sampleRate;
    blockSize_ = blockSize;
}

bool AudioFileLoadedResampled::loadResampled(AudioFile& file)
{
    const auto length = static_cast<int64_t>(file.frames());
    if (length == 0)
    {
        buffer_.frames = 0;
        return true;
    }
    if (file.sampleRate() == static_cast<int32_t>(targetRate_))
    {
        buffer_.alloc(length, file.channels());
        buffer_.frames = length;
        buffer_.position = 0;
        return file.read(buffer_);
    }
    std::unique_ptr<AudioResampler> resampler =
        factory_ ? factory_() : std::make_unique<AudioResampler_aliased>();
    // One pass over the whole sound: the block is the sound.
    resampler->setProvider(&file);
    resampler->prepare(targetRate_, static_cast<uint32_t>(length));
    resampler->sourceChanged();
    // Deliberately the input's frame count (what the drop-sample resampler reports): the buffer
    // holds as many frames as the file.
    const int64_t frames = resampler->frames();
    buffer_.alloc(frames, file.channels());
    buffer_.frames = frames;
    buffer_.position = 0;
    return resampler->read(buffer_);
}
