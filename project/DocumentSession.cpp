#include "project/DocumentSession.h"

#include "engine/Manager.h"
#include "engine/Metronome.h"
#include "project/Document.h"

void applyDocumentSession(Document& doc, Manager& manager, Metronome* metronome)
{
    if (doc.speedRatio > 0.0f)
    {
        manager.setSpeedRatio(doc.speedRatio);
    }
    doc.applyAll(manager);
    manager.setLoopStart(doc.loopStart);
    manager.setLoopEnd(doc.loopEnd);
    manager.setLoopEnabled(doc.loopEnabled);
    manager.setTempo(doc.clickTempo);
    manager.setMasterVolume(Document::masterDb(doc.masterSlider));
    manager.setInputGain(doc.inputGain);
    if (metronome != nullptr)
    {
        metronome->setTempo(doc.clickTempo * manager.speedRatio());
        metronome->setTimeSignature(doc.clickNumerator, doc.clickDenominator);
        // No gain of its own: the strip carries the volume, and 0% is quiet rather than silent.
        const float volume = (1.0f - static_cast<float>(doc.clickVolume) / 100.0f) * -40.0f;
        manager.mixerInput(Manager::kMetronomeIndex).setVolume(volume);
    }
}
