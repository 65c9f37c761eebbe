#include "audiofiles/AudioFile_sf.h"

#include "audiofiles/AudioFileUtil.h"

#include <algorithm>
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
    // A stream whose end libsndfile can't find (a cut Ogg file) reports the largest count there is:
    // it is no file of a known length, and the chain's fall-back measures such a stream itself.
    if (private_->info.frames < 0 || private_->info.frames == SF_COUNT_MAX)
    {
        error_ = "the length of the file is unknown";
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

int64_t AudioFile_sf::seekDecoder(int64_t position)
{
    SNDFILE* handle = private_->handle;
    const int major = private_->info.format & SF_FORMAT_TYPEMASK;
    // libsndfile's Ogg decoders land on the right frame without the overlap of the block before it,
    // so the first few hundred frames after a seek differ from a sequential read. Seeking earlier
    // and decoding up to the position gives the decoder its history.
    if (major != SF_FORMAT_OGG || position == 0)
        return sf_seek(handle, position, SEEK_SET);
    // In the last page the position is counted back from the page's end, which the encoder's
    // trimming moves: a seek there lands a few hundred frames off. So a position near the end is
    // reached from two seconds before it.
    constexpr sf_count_t kPreroll = 8192;
    const sf_count_t nearEnd = length_ - 2 * static_cast<sf_count_t>(private_->info.samplerate);
    sf_count_t from = std::max<sf_count_t>(0, position - kPreroll);
    if (from > nearEnd)
        from = std::max<sf_count_t>(0, nearEnd - kPreroll);
    if (sf_seek(handle, from, SEEK_SET) < 0)
        return -1;
    const int32_t fileChannels = private_->info.channels;
    if (!audiofiles::reserveFrames(interleaver_, kPreroll, fileChannels))
        return -1;
    for (sf_count_t at = from; at < position;)
    {
        const sf_count_t skip = std::min(position - at, kPreroll);
        if (sf_readf_float(handle, interleaver_.data(), skip) != skip)
            return -1;
        at += skip;
    }
    return position;
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
        const sf_count_t at = seekDecoder(position);
        if (at >= 0)
            cursor_ = static_cast<uint64_t>(at);
    }
    if (cursor_ != static_cast<uint64_t>(position))
        return false;

    const int32_t fileChannels = private_->info.channels;
    if (!audiofiles::reserveFrames(interleaver_, count, fileChannels))
        return false;
    const sf_count_t got = sf_readf_float(handle, interleaver_.data(), count);
    const sf_count_t delivered = std::max<sf_count_t>(got, 0);
    if (delivered < count)
    {
        // A block past the declared length fails as a whole and leaves the output as it was.
        // Within it, the file is shorter than its header says (a truncated file): what exists is
        // played and the rest is silence.
        if (position + count > length_)
        {
            cursor_ += static_cast<uint64_t>(delivered);
            return false;
        }
        std::fill(interleaver_.data() + delivered * fileChannels, interleaver_.data() + count * fileChannels,
                  0.0f);
    }
    interleaver_.deinterleave(into);
    cursor_ += static_cast<uint64_t>(count);
    return true;
}

bool AudioFile_sf::provide(AudioData& request)
{
    return audiofiles::provideThroughRead(*this, block_, request);
}
