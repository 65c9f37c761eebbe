#include "audiofiles/AudioFileWriter.h"

#include "audiofiles/AudioFileUtil.h"

#include <algorithm>
#include <sndfile.h>

/** The libsndfile handle of the file being written. */
struct AudioFileWriter::Handle
{
    SNDFILE* file = nullptr;

    ~Handle()
    {
        if (file)
            sf_close(file);
    }
};

AudioFileWriter::AudioFileWriter() = default;

AudioFileWriter::~AudioFileWriter()
{
    close();
}

bool AudioFileWriter::open(const epiPath& path, const AudioFileFormat& format)
{
    close();
    error_.clear();
    char native[epiPath::kNativeCapacity];
    path.toNative(native);
    SF_INFO info{};
    info.samplerate = format.sampleRate;
    info.channels = format.channels;
    info.format = formatCode(format.container, format.depth);
    sampleRate_ = format.sampleRate;
    channels_ = format.channels;
    SNDFILE* file = sf_open(native, SFM_WRITE, &info);
    if (!file)
    {
        error_ = sf_strerror(nullptr);
        return false;
    }
    // An integer depth ends at full scale: floats beyond it are clipped there instead of wrapping
    // round to the other side (at 32 bits even full scale itself would). Float depths keep every
    // sample as it is.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    handle_ = std::make_unique<Handle>();
    handle_->file = file;
    return true;
}

void AudioFileWriter::close()
{
    handle_.reset();
}

bool AudioFileWriter::isOpen() const
{
    return handle_ != nullptr;
}

bool AudioFileWriter::writeFloat(const AudioData& data)
{
    if (!handle_ || data.frames < 0)
        return false;
    if (!audiofiles::reserveFrames(interleaver_, data.frames, channels_))
        return false;
    interleaver_.interleave(data);
    return sf_writef_float(handle_->file, interleaver_.data(), data.frames) == data.frames;
}

bool AudioFileWriter::writeInt(const AudioData& data)
{
    if (!handle_ || data.frames < 0)
        return false;
    if (!audiofiles::reserveFrames(interleaver_, data.frames, channels_))
        return false;
    interleaver_.interleave(data);
    // The slots carry integers bit for bit; the store is 4-byte aligned like an int array.
    return sf_writef_int(handle_->file, reinterpret_cast<const int*>(interleaver_.data()), data.frames) ==
           data.frames;
}

bool AudioFileWriter::append(AudioFile& file, int64_t first, int64_t last)
{
    if (last == -1)
        last = static_cast<int64_t>(file.frames());
    AudioBuffer buffer;
    buffer.alloc(kPieceFrames, std::clamp(file.channels(), 1, 2));
    int64_t position = first;
    bool good = true;
    do
    {
        const int64_t count = std::clamp<int64_t>(last - position, 0, kPieceFrames);
        buffer.frames = count;
        buffer.position = position;
        good = file.read(buffer);
        if (good)
            writeFloat(buffer);
        position += count;
    } while (good && position < last);
    return good;
}

bool AudioFileWriter::writeSilence(int64_t frames)
{
    AudioBuffer buffer;
    buffer.alloc(kPieceFrames, std::clamp(channels_, 1, 2));
    bool good = true;
    int64_t left = std::max<int64_t>(frames, 0);
    do
    {
        const int64_t count = std::min(left, kPieceFrames);
        buffer.frames = count;
        good = writeFloat(buffer) && good;
        left -= count;
    } while (left > 0);
    return good;
}
