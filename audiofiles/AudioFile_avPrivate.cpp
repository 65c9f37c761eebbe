#include "audiofiles/AudioFile_avPrivate.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace
{

/** Frames decoded ahead of a seek target: enough for the longest overlap and bit reservoir of the
 * lossy codecs (two MP3 frames of 1152, two AAC frames of 1024) with a safety margin. */
constexpr int64_t kSeekPreroll = 8192;

std::string avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

} // namespace

libSoundFilePrivate_av::~libSoundFilePrivate_av()
{
    freeAll();
}

void libSoundFilePrivate_av::freeAll()
{
    if (swr_)
        swr_free(&swr_);
    if (frame_)
        av_frame_free(&frame_);
    if (packet_)
        av_packet_free(&packet_);
    if (codec_)
        avcodec_free_context(&codec_);
    if (format_)
        avformat_close_input(&format_);
    stream_ = -1;
    channels_ = 0;
    sampleRate_ = 0;
    length_ = 0;
    pending_.clear();
    lastFormat_ = -1;
}

bool libSoundFilePrivate_av::open(const std::string& path)
{
    // FFmpeg's messages would go to stderr; failures are reported through error() instead.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });
    freeAll();
    error_.clear();
    // Through the file protocol only: a name that happens to look like a URL or one of FFmpeg's
    // pseudo-protocols ("concat:", "subfile,") is still just a file here.
    const std::string url = "file:" + path;
    int status = avformat_open_input(&format_, url.c_str(), nullptr, nullptr);
    if (status < 0)
    {
        format_ = nullptr;
        error_ = "cannot open: " + avError(status);
        return false;
    }
    status = avformat_find_stream_info(format_, nullptr);
    if (status < 0)
    {
        error_ = "no stream information: " + avError(status);
        freeAll();
        return false;
    }
    const AVCodec* decoder = nullptr;
    stream_ = av_find_best_stream(format_, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (stream_ < 0 || !decoder)
    {
        error_ = "no audio stream that can be decoded";
        freeAll();
        return false;
    }
    decoder_ = decoder;
    if (!openCodec())
    {
        freeAll();
        return false;
    }
    channels_ = codec_->ch_layout.nb_channels;
    sampleRate_ = codec_->sample_rate;
    if (channels_ <= 0 || sampleRate_ <= 0)
    {
        error_ = "stream without channels or sample rate";
        freeAll();
        return false;
    }
    // Discard every stream but ours so that the demuxer hands out only our packets.
    for (unsigned i = 0; i < format_->nb_streams; ++i)
        if (static_cast<int>(i) != stream_)
            format_->streams[i]->discard = AVDISCARD_ALL;

    AVStream* stream = format_->streams[stream_];
    const AVRational frameBase{1, sampleRate_};
    startFrames_ = stream->start_time != AV_NOPTS_VALUE
                       ? av_rescale_q(stream->start_time, stream->time_base, frameBase)
                       : 0;
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        length_ = av_rescale_q(stream->duration, stream->time_base, frameBase);
    else if (format_->duration != AV_NOPTS_VALUE && format_->duration > 0)
        length_ = av_rescale_q(format_->duration, AVRational{1, AV_TIME_BASE}, frameBase);
    else
        length_ = 0;
    if (length_ <= 0)
    {
        error_ = "stream without a length";
        freeAll();
        return false;
    }

    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (!packet_ || !frame_)
    {
        error_ = "out of memory";
        freeAll();
        return false;
    }
    pending_.assign(static_cast<size_t>(channels_), {});
    pendingStart_ = 0;
    pendingUsed_ = 0;
    decodeCursor_ = 0;
    endOfStream_ = false;
    draining_ = false;
    position_ = 0;
    measureEnd();
    // A stream that doesn't decode at its start is no audio file, whatever the probe guessed from
    // its name or first bytes.
    if (!seek(0) || pending_[0].size() <= static_cast<size_t>(pendingUsed_))
    {
        error_ = "no audio could be decoded";
        freeAll();
        return false;
    }
    return true;
}

void libSoundFilePrivate_av::measureEnd()
{
    // A duration from the container may include the encoder's end padding (MP3 without a
    // decoder-side trim) or be an estimate from the bit rate: decode the last stretch to find the
    // real end, and take it when it is earlier.
    const int64_t from = std::max<int64_t>(0, length_ - 4 * kSeekPreroll);
    if (!seek(from))
        return;
    const int64_t declared = length_;
    length_ = INT64_MAX;
    float* none[1] = {nullptr};
    int64_t end = from;
    for (;;)
    {
        const int64_t got = read(none, 0, 65536);
        end += got;
        if (got < 65536)
            break;
    }
    length_ = end > from && end < declared ? end : declared;
}

bool libSoundFilePrivate_av::openCodec()
{
    if (codec_)
        avcodec_free_context(&codec_);
    AVStream* stream = format_->streams[stream_];
    codec_ = avcodec_alloc_context3(decoder_);
    if (!codec_ || avcodec_parameters_to_context(codec_, stream->codecpar) < 0)
    {
        error_ = "cannot set up the decoder";
        return false;
    }
    codec_->pkt_timebase = stream->time_base;
    const int status = avcodec_open2(codec_, decoder_, nullptr);
    if (status < 0)
    {
        error_ = "cannot open the decoder: " + avError(status);
        return false;
    }
    return true;
}

bool libSoundFilePrivate_av::flush()
{
    // A fresh decoder rather than avcodec_flush_buffers: some decoders keep overlap state across a
    // flush, and the samples after a seek must not depend on what was decoded before it.
    if (!openCodec())
        return false;
    for (auto& channel : pending_)
        channel.clear();
    pendingUsed_ = 0;
    endOfStream_ = false;
    draining_ = false;
    return true;
}

bool libSoundFilePrivate_av::decodeMore()
{
    for (;;)
    {
        int status = avcodec_receive_frame(codec_, frame_);
        if (status == 0 && (frame_->ch_layout.nb_channels != channels_ || frame_->sample_rate != sampleRate_))
        {
            // A stream that changes its layout or rate midway (a damaged or spliced file): those frames
            // can't be placed in this reader's format and are dropped; their time becomes silence.
            if (frame_->sample_rate > 0)
                decodeCursor_ += av_rescale(frame_->nb_samples, sampleRate_, frame_->sample_rate);
            av_frame_unref(frame_);
            continue;
        }
        if (status == 0)
        {
            const int64_t count = frame_->nb_samples;
            // Frames follow each other; only the first one after a jump into the middle of the
            // stream is placed by its timestamp. Counting is what keeps the start of the stream
            // exact where a container derives early timestamps from a page's end (a short Ogg file).
            int64_t start = decodeCursor_;
            if (placeByTimestamp_ && frame_->best_effort_timestamp != AV_NOPTS_VALUE)
                start = av_rescale_q(frame_->best_effort_timestamp, format_->streams[stream_]->time_base,
                                     AVRational{1, sampleRate_}) -
                        startFrames_;
            placeByTimestamp_ = false;
            // Convert to planar float at the file's own rate and layout.
            if (!swr_ || frame_->format != lastFormat_)
            {
                if (swr_)
                    swr_free(&swr_);
                AVChannelLayout layout{};
                av_channel_layout_default(&layout, channels_);
                if (swr_alloc_set_opts2(&swr_, &layout, AV_SAMPLE_FMT_FLTP, sampleRate_, &layout,
                                        static_cast<AVSampleFormat>(frame_->format), sampleRate_, 0,
                                        nullptr) < 0 ||
                    swr_init(swr_) < 0)
                {
                    av_channel_layout_uninit(&layout);
                    av_frame_unref(frame_);
                    return false;
                }
                av_channel_layout_uninit(&layout);
                lastFormat_ = frame_->format;
            }
            // Keep the unread tail of what is pending, then append the new frame.
            const int64_t keep = static_cast<int64_t>(pending_[0].size()) - pendingUsed_;
            if (keep <= 0 || start != pendingStart_ + static_cast<int64_t>(pending_[0].size()))
            {
                for (auto& channel : pending_)
                    channel.clear();
                pendingStart_ = start;
            }
            else if (pendingUsed_ > 0)
            {
                for (auto& channel : pending_)
                    channel.erase(channel.begin(), channel.begin() + pendingUsed_);
                pendingStart_ += pendingUsed_;
            }
            pendingUsed_ = 0;
            const size_t old = pending_[0].size();
            std::vector<uint8_t*> outPointers(static_cast<size_t>(channels_));
            for (int c = 0; c < channels_; ++c)
            {
                pending_[c].resize(old + static_cast<size_t>(count));
                outPointers[c] = reinterpret_cast<uint8_t*>(pending_[c].data() + old);
            }
            const int converted =
                swr_convert(swr_, outPointers.data(), static_cast<int>(count),
                            const_cast<const uint8_t**>(frame_->extended_data), static_cast<int>(count));
            av_frame_unref(frame_);
            if (converted < 0)
                return false;
            for (auto& channel : pending_)
                channel.resize(old + static_cast<size_t>(converted));
            decodeCursor_ = start + converted;
            return true;
        }
        if (status == AVERROR_EOF)
        {
            endOfStream_ = true;
            return false;
        }
        if (status != AVERROR(EAGAIN))
        {
            endOfStream_ = true;
            return false;
        }
        if (draining_)
        {
            endOfStream_ = true;
            return false;
        }
        // The decoder wants input.
        for (;;)
        {
            status = av_read_frame(format_, packet_);
            if (status < 0)
            {
                draining_ = true;
                avcodec_send_packet(codec_, nullptr);
                break;
            }
            if (packet_->stream_index != stream_)
            {
                av_packet_unref(packet_);
                continue;
            }
            status = avcodec_send_packet(codec_, packet_);
            av_packet_unref(packet_);
            // A damaged packet is skipped: the decoder resynchronises on the next one.
            (void)status;
            break;
        }
    }
}

bool libSoundFilePrivate_av::seek(int64_t frame)
{
    if (!format_)
        return false;
    if (frame < 0)
        frame = 0;
    AVStream* stream = format_->streams[stream_];
    int64_t preroll = kSeekPreroll;
    for (int attempt = 0; attempt < 8; ++attempt)
    {
        // Near the end of a stream some containers count positions back from the last page or
        // packet, which the encoder's end trimming shifts; the last two seconds are reached by
        // decoding from before them.
        int64_t target = std::max<int64_t>(0, frame - preroll);
        const int64_t nearEnd = length_ - 2 * static_cast<int64_t>(sampleRate_);
        if (target > nearEnd && length_ != INT64_MAX)
            target = std::max<int64_t>(0, nearEnd - preroll);
        const int64_t ts = av_rescale_q(target + startFrames_, AVRational{1, sampleRate_}, stream->time_base);
        int status;
        if (target == 0)
        {
            // From the very first packet, priming packets before the container's time 0 included, so
            // that the decoder starts as it did on opening. Demuxers that refuse a time before the
            // start get their start time itself.
            const int64_t first =
                av_rescale_q(startFrames_ - kSeekPreroll, AVRational{1, sampleRate_}, stream->time_base);
            status = avformat_seek_file(format_, stream_, INT64_MIN, first, first, 0);
            if (status < 0)
                status = avformat_seek_file(format_, stream_, INT64_MIN, ts, ts, 0);
        }
        else
            status = av_seek_frame(format_, stream_, ts, AVSEEK_FLAG_BACKWARD);
        if (!flush())
            return false;
        // From the start the decoder's first frame is the music's first: the decoder has removed
        // the priming itself.
        decodeCursor_ = target;
        placeByTimestamp_ = target != 0;
        // Decode until the target lies in or behind what is pending.
        bool landedLate = false;
        for (;;)
        {
            if (!decodeMore())
                break;
            if (pendingStart_ > frame && target > 0)
            {
                landedLate = true;
                break;
            }
            if (pendingStart_ + static_cast<int64_t>(pending_[0].size()) > frame)
                break;
            pendingUsed_ = static_cast<int64_t>(pending_[0].size());
        }
        if (landedLate)
        {
            preroll *= 4;
            continue;
        }
        if (pendingStart_ <= frame)
            pendingUsed_ = std::min<int64_t>(frame - pendingStart_, static_cast<int64_t>(pending_[0].size()));
        position_ = frame;
        return true;
    }
    return false;
}

int64_t libSoundFilePrivate_av::read(float* const* out, int32_t outChannels, int64_t count)
{
    if (!format_)
        return 0;
    // The stream's length is the music's: decoders may deliver the codec's end padding behind it.
    count = std::min(count, std::max<int64_t>(0, length_ - position_));
    int64_t done = 0;
    while (done < count)
    {
        const int64_t have = static_cast<int64_t>(pending_[0].size()) - pendingUsed_;
        if (have <= 0)
        {
            if (endOfStream_ || !decodeMore())
                break;
            continue;
        }
        // Frames behind the position (overlapping timestamps) are skipped.
        const int64_t behind = position_ - (pendingStart_ + pendingUsed_);
        if (behind > 0)
        {
            pendingUsed_ += std::min(behind, have);
            continue;
        }
        // A gap in the timestamps (a damaged stretch) is given as silence up to the next frame.
        const int64_t at = pendingStart_ + pendingUsed_;
        if (at > position_)
        {
            const int64_t gap = std::min(at - position_, count - done);
            for (int c = 0; c < outChannels; ++c)
                if (out[c])
                    std::fill(out[c] + done, out[c] + done + gap, 0.0f);
            done += gap;
            position_ += gap;
            continue;
        }
        const int64_t take = std::min(have, count - done);
        for (int c = 0; c < outChannels && c < channels_; ++c)
            if (out[c])
                std::memcpy(out[c] + done, pending_[c].data() + pendingUsed_, static_cast<size_t>(take) * 4);
        pendingUsed_ += take;
        done += take;
        position_ += take;
    }
    return done;
}
