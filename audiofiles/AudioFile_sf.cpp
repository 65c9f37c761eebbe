#include "audiofiles/AudioFile_sf.h"

#include "audiofiles/AudioFileUtil.h"

#include <sndfile.h>

/** The libsndfile handle of an open file and the format it reported. */
class libSoundFilePrivate_sf
{
public:
    libSoundFilePrivate_sf() = default;
    libSoundFilePrivate_sf(const libSoundFilePrivate_sf&) = delete;
    libSoundFilePrivate_sf& operator=(const libSoundFilePrivate_sf&) = delete;
    virtual ~libSoundFilePrivate_sf()
    {
        if (handle)
            sf_close(handle);
    }

    SNDFILE* handle = nullptr;
    SF_INFO info{};
};

AudioFile_sf::AudioFile_sf() = default;

AudioFile_sf::~AudioFile_sf()
{
    close();
}

bool AudioFile_sf::open(const epiPath& path)
{
    close();
    error_.clear();
    char native[epiPath::kNativeCapacity];
    path.toNative(native);
    private_ = std::make_unique<libSoundFilePrivate_sf>();
    private_->handle = sf_open(native, SFM_READ, &private_->info);
    if (!private_->handle)
    {
        error_ = sf_strerror(nullptr);
        close();
        return false;
    }
    length_ = private_->info.frames;
    cursor_ = 0;
    sf_command(private_->handle, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
    return true;
}

void AudioFile_sf::close()
{
    if (private_ && private_->handle)
    {
        sf_close(private_->handle);
        private_->handle = nullptr;
    }
    private_.reset();
    length_ = 0;
    cursor_ = 0;
}

uint64_t AudioFile_sf::frames() const
{
    return private_ ? static_cast<uint64_t>(length_) : 0;
}

int32_t AudioFile_sf::sampleRate() const
{
    return private_ ? private_->info.samplerate : 0;
}

int32_t AudioFile_sf::channels()
{
    return private_ ? private_->info.channels : 0;
}

void AudioFile_sf::duration(AudioFileTime& time) const
{
    time.value = audiofiles::durationUnits(private_ ? length_ : 0, sampleRate());
}

bool AudioFile_sf::read(AudioData& into)
{
    if (!private_)
        return false;
    const int64_t position = into.position;
    const int64_t count = into.frames;
    if (position < 0 || count < 0)
        return false;
    SNDFILE* handle = private_->handle;
    // Position 0 restarts the decoder even on a file that says it can't seek: that is how a stream
    // that can only be read forwards is played again from the start.
    if (position == 0)
        sf_seek(handle, 0, SEEK_SET);
    if (cursor_ != static_cast<uint64_t>(position) && private_->info.seekable)
    {
        const sf_count_t at = sf_seek(handle, position, SEEK_SET);
        if (at >= 0)
            cursor_ = static_cast<uint64_t>(at);
    }
    if (cursor_ != static_cast<uint64_t>(position))
        return false;

    const int32_t fileChannels = private_->info.channels;
    if (!audiofiles::reserveFrames(interleaver_, count, fileChannels))
        return false;
    const sf_count_t got = sf_readf_float(handle, interleaver_.data(), count);
    if (got < count)
    {
        // The decoder moved even though the block failed: keep the cursor on the decoder.
        if (got > 0)
            cursor_ += static_cast<uint64_t>(got);
        return false;
    }
    interleaver_.deinterleave(into);
    cursor_ += static_cast<uint64_t>(count);
    return true;
}

bool AudioFile_sf::provide(AudioData& request)
{
    return audiofiles::provideThroughRead(*this, block_, request);
}
