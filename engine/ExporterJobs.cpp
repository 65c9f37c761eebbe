#include "engine/ExporterJobs.h"

#include "engine/Manager.h"

#include <algorithm>
#include <memory>
#include <string>

namespace
{

// A frozen track's effect runs this many silent blocks at the end, which clears its tails and state
// for the next time it plays.
constexpr int kFlushBlocks = 100;

AudioFileFormat stereoFormat(const Manager& manager, int32_t container, int32_t depth)
{
    AudioFileFormat format;
    format.channels = 2;
    format.sampleRate = static_cast<int32_t>(manager.sampleRate());
    format.container = container;
    format.depth = depth;
    return format;
}

double fraction(int64_t position, int64_t end)
{
    return end > 0 ? static_cast<double>(position) / static_cast<double>(end) : 1.0;
}

} // namespace

AudioExporter::AudioExporter(Manager& manager, const epiPath& path, int32_t container, int32_t bitDepth,
                             bool loopOnly)
    : manager_(&manager), path_(path), loopOnly_(loopOnly)
{
    block_.alloc(std::max<uint32_t>(manager.blockSize(), 1), 2);
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        Track& track = manager.trackNode(i);
        track.setDirectRead(true);
        track.setPlaying(true);
    }
    writer_.open(path_, stereoFormat(manager, container, bitDepth));
    int64_t longest = 0;
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        longest = std::max(longest, manager.trackNode(i).length());
    }
    // Engine frames, kept to 32 bits as the rest of the session's lengths are.
    end_ = static_cast<int32_t>(longest);
    position_ = 0;
    if (loopOnly_)
    {
        // The loop points as the interface sees them (session frames), which at a speed ratio other
        // than 1 is not the engine's unit; kept so for the files it makes.
        position_ = manager.loopStart();
        end_ = manager.loopEnd();
    }
}

AudioExporter::~AudioExporter() = default;

void AudioExporter::releaseTracks()
{
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        Track& track = manager_->trackNode(i);
        track.setDirectRead(false);
        track.setPlaying(manager_->isPlaying());
    }
}

bool AudioExporter::render(float& progress, bool& finished)
{
    if (position_ >= end_)
    {
        return false;
    }
    int64_t budget = manager_->sampleRate();
    do
    {
        const int64_t n = std::min<int64_t>(block_.capacity(), end_ - position_);
        block_.frames = n;
        block_.position = position_;
        block_.silence();
        manager_->mixer().read(block_);
        block_.clamp();
        writer_.writeFloat(block_);
        position_ += n;
        budget -= n;
    } while (budget > 0 && position_ < end_);
    progress = static_cast<float>(fraction(position_, end_));
    finished = position_ >= end_;
    if (finished)
    {
        releaseTracks();
        writer_.close();
    }
    return true;
}

void AudioExporter::cancel()
{
    releaseTracks();
    writer_.close();
    path_.remove();
}

epiPath TrackFreezer::frozenPathFor(const epiPath& file, int32_t track)
{
    epiPath frozen = file;
    // The track's number in the name: two tracks on one file each have a frozen file of their own.
    frozen.appendToBaseName(("_T" + std::to_string(track + 1) + "_frozen").c_str());
    frozen.replaceExtension("wav");
    return frozen;
}

TrackFreezer::TrackFreezer(Manager& manager, int32_t track) : manager_(&manager), track_(track)
{
    block_.alloc(std::max<uint32_t>(manager.blockSize(), 1), 2);
    Track& node = manager.trackNode(track_);
    // Arming is about the input: the file is frozen as the track plays it when not armed.
    wasArmed_ = node.isArmed();
    node.setArmed(false);
    node.setDirectRead(true);
    node.setPlaying(true);
    if (node.filePath().empty())
    {
        // Nothing to render: no file is made, and the first step fails.
        return;
    }
    path_ = frozenPathFor(node.filePath(), track_);
    path_.remove();
    if (!writer_.open(path_, stereoFormat(manager, AudioFileFormats::kWave, AudioFileFormats::k24Bit)))
    {
        // The first step fails with the file's name, before anything is rendered.
        failure_ = epiText("The frozen file \"" + path_.toNativeText() +
                           "\" could not be created: " + writer_.error());
        return;
    }
    end_ = node.length();
    position_ = 0;
}

TrackFreezer::~TrackFreezer() = default;

bool TrackFreezer::render(float& progress, bool& finished)
{
    if (position_ >= end_ || !writer_.isOpen())
    {
        return false;
    }
    Track& node = manager_->trackNode(track_);
    int64_t budget = manager_->sampleRate();
    do
    {
        AudioData request;
        request.channels = 2;
        request.position = position_;
        request.frames = std::min<int64_t>(block_.capacity(), end_ - position_);
        const int64_t asked = request.frames;
        block_.position = position_;
        if (node.provide(request) && request.frames > 0)
        {
            block_.frames = std::min(request.frames, asked);
            block_.copyFrom(request);
        }
        else
        {
            // A track with nothing to give renders silence for its frames, so the job always advances.
            block_.frames = asked;
            block_.silence();
        }
        block_.clamp();
        if (!writer_.writeFloat(block_))
        {
            failure_ = epiText("Writing the frozen file \"" + path_.toNativeText() +
                               "\" failed: " + writer_.error());
            return false;
        }
        position_ += block_.frames;
        budget -= block_.frames;
    } while (budget > 0 && position_ < end_);
    progress = static_cast<float>(fraction(position_, end_));
    finished = position_ >= end_;
    if (finished)
    {
        node.setDirectRead(false);
        node.setPlaying(false);
        // Stopped, the effect's source gives nothing: these blocks are silence through the effect.
        block_.frames = block_.capacity();
        for (int i = 0; i < kFlushBlocks; ++i)
        {
            block_.position = 0;
            node.effect().read(block_);
        }
        // The file is finished before the track opens it, so that it reads the whole of it.
        writer_.close();
        node.loadFrozen(path_);
        node.setFrozen(true);
        node.setPlaying(manager_->isPlaying());
        node.setArmed(wasArmed_);
    }
    return true;
}

void TrackFreezer::cancel()
{
    Track& node = manager_->trackNode(track_);
    node.setDirectRead(false);
    node.setPlaying(manager_->isPlaying());
    node.setArmed(wasArmed_);
    writer_.close();
    if (!path_.empty())
    {
        path_.remove();
    }
}

void ManagerJobs::startExport(Manager& manager, const epiPath& path, int32_t container, int32_t bitDepth,
                              bool loopOnly)
{
    manager.startTask(
        [&]() -> std::unique_ptr<Exporter>
        { return std::make_unique<AudioExporter>(manager, path, container, bitDepth, loopOnly); },
        epiText("Rendering session"), epiText("Rendering session..."));
}

void ManagerJobs::setTrackFrozen(Manager& manager, int32_t track, bool on)
{
    if (track < 0 || track >= Manager::kTracks)
    {
        return;
    }
    if (!on)
    {
        manager.track(track).setFrozen(false);
        return;
    }
    manager.startTask(
        [&]() -> std::unique_ptr<Exporter>
        {
            // Unfrozen first, so that a track that was frozen goes through its effect again, and so that
            // clearing the old freeze deletes the old file before the new one is written in its place.
            manager.track(track).setFrozen(false);
            return std::make_unique<TrackFreezer>(manager, track);
        },
        epiText("Freezing track"), epiText("Freezing track..."));
}

void Manager::startExport(const epiPath& path, int32_t container, int32_t bitDepth, bool loopOnly)
{
    ManagerJobs::startExport(*this, path, container, bitDepth, loopOnly);
}

void Manager::setTrackFrozen(int32_t track, bool on)
{
    ManagerJobs::setTrackFrozen(*this, track, on);
}
