#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwrContext;
struct AVCodec;

/**
 * The decoder record behind AudioFile_av: one audio stream of a container opened with FFmpeg's
 * libavformat, decoded with libavcodec and converted to planar float with libswresample.
 *
 * Positions are frames of the music: frame 0 is the first sample after the codec's start delay
 * (encoder priming), whatever the container's timestamps say. Seeking is frame-accurate: the
 * demuxer is sent to a point a little before the target and the decoded frames before the target are
 * dropped, so that a read at any position gives what a sequential read reaching it gives.
 *
 * Used by one thread at a time.
 */
class libSoundFilePrivate_av
{
public:
    libSoundFilePrivate_av() = default;
    libSoundFilePrivate_av(const libSoundFilePrivate_av&) = delete;
    libSoundFilePrivate_av& operator=(const libSoundFilePrivate_av&) = delete;
    virtual ~libSoundFilePrivate_av();

    /**
     * Opens the first audio stream of a file. False when the file can't be read, holds no audio
     * stream, has no decoder, or yields no length; error() then says why.
     */
    bool open(const std::string& path);

    int32_t channels() const { return channels_; }
    int32_t sampleRate() const { return sampleRate_; }
    /** Length in frames, from the stream's duration less the start delay. */
    int64_t length() const { return length_; }
    /** Why open failed, for the debug log. */
    const std::string& error() const { return error_; }

    /** Makes frame the next one that read delivers. False when the demuxer can't seek there. */
    bool seek(int64_t frame);

    /**
     * Decodes count frames from the current position into planar float channels. Channels of the
     * file beyond outChannels are dropped; out[c] may be null to drop a channel.
     * @returns the frames delivered: fewer than count only at the end of the stream
     */
    int64_t read(float* const* out, int32_t outChannels, int64_t count);

    /** The frame that the next read delivers. */
    int64_t position() const { return position_; }

private:
    /** Decodes the next frame of the stream into pending_; false at the end or on an error. */
    bool decodeMore();
    /** Drops what is pending and restarts the decoder after a jump of the demuxer. */
    bool flush();
    /** Makes a fresh decoder for the stream; false with error_ set when it can't. */
    bool openCodec();
    /** Corrects length_ by decoding the end of the stream. */
    void measureEnd();
    void freeAll();

    AVFormatContext* format_ = nullptr;
    const AVCodec* decoder_ = nullptr;
    AVCodecContext* codec_ = nullptr;
    SwrContext* swr_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    int stream_ = -1;

    int32_t channels_ = 0;
    int32_t sampleRate_ = 0;
    int64_t length_ = 0;
    /** Stream time of music frame 0, in frames: the container's start time. */
    int64_t startFrames_ = 0;
    std::string error_;

    /** Decoded frames not yet delivered, planar, from pendingStart_ on. */
    std::vector<std::vector<float>> pending_;
    int64_t pendingStart_ = 0;
    int64_t pendingUsed_ = 0;
    /** Where the decoder's next frame lands when the stream gives no timestamp. */
    int64_t decodeCursor_ = 0;
    /** Whether the next decoded frame is placed by its timestamp (after a seek into the middle). */
    bool placeByTimestamp_ = false;
    bool endOfStream_ = false;
    bool draining_ = false;
    /** Sample format the converter was made for; -1 before the first frame. */
    int lastFormat_ = -1;

    /** Next frame read delivers. */
    int64_t position_ = 0;
};
