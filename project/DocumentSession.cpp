#include "project/DocumentSession.h"

#include "engine/Manager.h"
#include "engine/Metronome.h"
#include "project/Document.h"

void applyDocumentSession(Document& doc, Manager& manager, Metronome* metronome)
{
    // The loop is set at a ratio of 1, where session and engine frames agree and switching it on
    // measures the session in the unit it is stored in; the ratio then converts the points, keeping
    // their session positions. Set at another ratio, the loop end would be cut to a length in the
    // other unit.
    manager.setSpeedRatio(1.0f);
    doc.applyAll(manager);
    manager.setLoopEnabled(doc.loopEnabled);
    manager.setLoopStart(doc.loopStart);
    manager.setLoopEnd(doc.loopEnd);
    // Once more over the points just set: a reversed loop, or one past the session's end, from a file
    // whose audio has changed since is mended as switching the loop on mends it.
    manager.setLoopEnabled(doc.loopEnabled);
    if (doc.speedRatio > 0.0f)
    {
        manager.setSpeedRatio(doc.speedRatio);
    }
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
