#include "audiofiles/AudioFile_av.h"

#include "audiofiles/AudioFileUtil.h"
#include "audiofiles/AudioFile_avPrivate.h"

#include <algorithm>

AudioFile_av::AudioFile_av() = default;

AudioFile_av::~AudioFile_av()
{
    close();
}

bool AudioFile_av::open(const epiPath& path)
{
    close();
    error_.clear();
    char native[epiPath::kNativeCapacity];
    path.toNative(native);
    auto record = std::make_unique<libSoundFilePrivate_av>();
    if (!record->open(native))
    {
        error_ = record->error();
        return false;
    }
    length_ = record->length();
    cursor_ = 0;
    private_ = std::move(record);
    return length_ > 0;
}

void AudioFile_av::close()
{
    private_.reset();
    length_ = 0;
    cursor_ = 0;
}

uint64_t AudioFile_av::frames() const
{
    return private_ ? static_cast<uint64_t>(length_) : 0;
}

int32_t AudioFile_av::sampleRate() const
{
    return private_ ? private_->sampleRate() : 0;
}

int32_t AudioFile_av::channels()
{
    return private_ ? private_->channels() : 0;
}

void AudioFile_av::duration(AudioFileTime& time) const
{
    time.value = audiofiles::durationUnits(private_ ? length_ : 0, sampleRate());
}

bool AudioFile_av::read(AudioData& into)
{
    if (!private_)
        return false;
    const int64_t position = into.position;
    const int64_t count = into.frames;
    if (position < 0 || count < 0)
        return false;
    // Position 0 always restarts the decoder, as in AudioFile_sf.
    if (position == 0 || cursor_ != static_cast<uint64_t>(position))
    {
        if (private_->seek(position))
            cursor_ = static_cast<uint64_t>(position);
    }
    if (cursor_ != static_cast<uint64_t>(position))
        return false;
    const int32_t outChannels = std::clamp(into.channels, 0, 2);
    float* out[2] = {outChannels > 0 ? into.channel[0] : nullptr,
                     outChannels > 1 ? into.channel[1] : nullptr};
    const int64_t got = private_->read(out, outChannels, count);
    // Past the end of the stream (a truncated file, or a block that runs over the end) the rest is
    // silence; the decoder stays at the end.
    if (got < count)
    {
        const int32_t fileChannels = std::min(outChannels, private_->channels());
        for (int32_t c = 0; c < fileChannels; ++c)
            if (out[c])
                std::fill(out[c] + got, out[c] + count, 0.0f);
    }
    cursor_ = static_cast<uint64_t>(private_->position());
    if (got == count)
        return true;
    // The decoder stopped short; later reads that follow on give silence without a seek.
    cursor_ = static_cast<uint64_t>(position + count);
    return true;
}

bool AudioFile_av::provide(AudioData& request)
{
    return audiofiles::provideThroughRead(*this, block_, request);
}
