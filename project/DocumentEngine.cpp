// The two directions between the project's track records and the engine.

#include "engine/Manager.h"
#include "project/Document.h"

void Document::captureTrack(int32_t index, Manager& manager)
{
    if (index < 0 || index >= kTracks || index >= static_cast<int32_t>(tracks.size()))
    {
        return;
    }
    DocumentTrack& record = *tracks[static_cast<size_t>(index)];
    MixerInputControls& strip = manager.mixerInput(index);
    TrackControls& track = manager.track(index);
    record.pan = strip.pan();
    record.volume = strip.volume();
    record.solo = strip.isSolo();
    record.mute = strip.isMuted();
    record.pitch = track.pitch();
    record.speed = track.speed();
    record.effectLoaded = track.isEffectLoaded();
    record.effectEnabled = track.isEffectEnabled();
    record.frozenPath = track.frozenPathCopy();
    record.frozen = track.isFrozen();
    record.armed = track.isArmed();
    record.input = track.input();
    track.effectState(record.effectState);
}

void Document::applyTrack(int32_t index, Manager& manager)
{
    if (index < 0 || index >= kTracks || index >= static_cast<int32_t>(tracks.size()))
    {
        return;
    }
    DocumentTrack& record = *tracks[static_cast<size_t>(index)];
    MixerInputControls& strip = manager.mixerInput(index);
    TrackControls& track = manager.track(index);
    strip.setPan(record.pan);
    strip.setVolume(record.volume);
    manager.setSolo(index, record.solo);
    strip.setMute(record.mute);
    track.setPitch(record.pitch);
    track.setSpeed(record.speed);
    track.setEffectLoaded(record.effectLoaded);
    track.setEffectEnabled(record.effectEnabled);
    epiPath file;
    bool recorded = false;
    if (trackFile(index, file, recorded))
    {
        manager.loadTrack(index, file);
    }
    // A frozen path kept beside a track that isn't frozen is stale: it goes, and its file stays on disk
    // (unfreezing deletes only a file that a freeze of this track made).
    track.loadFrozen(record.frozen ? record.frozenPath : epiPath());
    track.setFrozen(record.frozen);
    track.setArmed(record.armed);
    track.setInput(record.input);
    // Last: the effect must exist before its state can reach it.
    track.setEffectState(record.effectState);
}

void Document::captureAll(Manager& manager)
{
    for (int32_t i = 0; i < kTracks; ++i)
    {
        captureTrack(i, manager);
    }
}

void Document::applyAll(Manager& manager)
{
    for (int32_t i = 0; i < kTracks; ++i)
    {
        applyTrack(i, manager);
    }
}
