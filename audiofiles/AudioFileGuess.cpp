#include "audiofiles/AudioFileGuess.h"

#include "audiofiles/AudioFile_av.h"
#include "audiofiles/AudioFile_sf.h"

AudioFileGuess::AudioFileGuess() = default;

AudioFileGuess::~AudioFileGuess()
{
    close();
}

bool AudioFileGuess::open(const epiPath& path)
{
    close();
    auto sf = std::make_unique<AudioFile_sf>();
    if (sf->open(path))
    {
        file_ = std::move(sf);
        error_.clear();
        return true;
    }
    const std::string sfError = sf->error();
    sf.reset();
    auto av = std::make_unique<AudioFile_av>();
    if (av->open(path))
    {
        file_ = std::move(av);
        error_.clear();
        return true;
    }
    error_ = "libsndfile: " + sfError + "; ffmpeg: " + (av->error().empty() ? "no audio" : av->error());
    return false;
}

void AudioFileGuess::close()
{
    if (file_)
    {
        file_->close();
        file_.reset();
    }
}

bool AudioFileGuess::provide(AudioData& request)
{
    return file_ ? file_->provide(request) : false;
}

bool AudioFileGuess::read(AudioData& into)
{
    return file_ ? file_->read(into) : false;
}

int32_t AudioFileGuess::channels()
{
    return file_ ? file_->channels() : 0;
}

void AudioFileGuess::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    if (file_)
        file_->prepare(sampleRate, blockSize);
}

bool AudioFileGuess::isOpen() const
{
    return file_ ? file_->isOpen() : false;
}

uint64_t AudioFileGuess::frames() const
{
    return file_ ? file_->frames() : 0;
}

int32_t AudioFileGuess::sampleRate() const
{
    return file_ ? file_->sampleRate() : 0;
}

void AudioFileGuess::duration(AudioFileTime& time) const
{
    if (file_)
        file_->duration(time);
}

int64_t AudioFileGuess::playableFrames() const
{
    return file_ ? file_->playableFrames() : 0;
}

bool AudioFileGuess::isVariable() const
{
    return file_ ? file_->isVariable() : false;
}

const char* AudioFileGuess::readerName() const
{
    if (dynamic_cast<const AudioFile_sf*>(file_.get()))
        return "sndfile";
    if (dynamic_cast<const AudioFile_av*>(file_.get()))
        return "ffmpeg";
    return "";
}

bool AudioFileGuessSafe::open(const epiPath& path)
{
    limit_ = 0;
    if (!AudioFileGuess::open(path))
        return false;
    limit_ = frames();
    return true;
}

bool AudioFileGuessSafe::provide(AudioData& request)
{
    if (request.position < 0 || request.frames < 0 ||
        static_cast<uint64_t>(request.position + request.frames) > limit_)
        return false;
    return AudioFileGuess::provide(request);
}

bool AudioFileGuessSafe::read(AudioData& into)
{
    if (into.position < 0 || into.frames < 0)
        return false;
    if (static_cast<uint64_t>(into.position + into.frames) <= limit_)
        return AudioFileGuess::read(into);
    into.silence();
    if (static_cast<uint64_t>(into.position) >= limit_)
        return isOpen();
    AudioData part;
    part.adopt(into);
    part.frames = static_cast<int64_t>(limit_) - into.position;
    return AudioFileGuess::read(part);
}
