#include "project/Document.h"

#include <string>

Document::Document()
{
    ensureTracks();
}

Document::~Document() = default;

void Document::reset()
{
    path.clear();
    workFolder.clear();
    elements.clear();
    tracks.clear();
    ensureTracks();
    speedLink = true;
    clickEnabled = false;
    clickTempo = 120.0f;
    clickNumerator = 4;
    clickDenominator = 4;
    clickVolume = 100;
    loopEnabled = false;
    loopStart = 0;
    loopEnd = 0;
    speedRatio = 1.0f;
}

void Document::ensureTracks()
{
    while (static_cast<int32_t>(tracks.size()) < kTracks)
    {
        auto track = std::make_unique<DocumentTrack>();
        // A new project starts with track 1 armed on the left input, its effect on, so that the player
        // hears the guitar at once; the others wait, bypassed, on both inputs.
        const bool first = tracks.empty();
        track->effectEnabled = first;
        track->effectLoaded = first;
        track->armed = first;
        track->input = first ? 0 : 2;
        tracks.push_back(std::move(track));
    }
}

void Document::setPath(const epiPath& newPath)
{
    path = newPath;
    name = newPath.baseName();
}

int32_t Document::addElement(const epiPath& file)
{
    for (const auto& element : elements)
    {
        if (static_cast<const std::string&>(*element) == static_cast<const std::string&>(file))
        {
            return element->id;
        }
    }
    int32_t id = 1;
    while (elementIndex(id) >= 0)
    {
        ++id;
    }
    auto element = std::make_unique<DocumentElement>(file);
    element->id = id;
    elements.push_back(std::move(element));
    return id;
}

bool Document::findElement(const epiPath& file) const
{
    for (const auto& element : elements)
    {
        if (static_cast<const std::string&>(*element) == static_cast<const std::string&>(file))
        {
            return true;
        }
    }
    return false;
}

int32_t Document::elementIndex(int32_t id) const
{
    for (size_t i = 0; i < elements.size(); ++i)
    {
        if (elements[i]->id == id)
        {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

int32_t Document::trackElementIndex(int32_t track) const
{
    if (track < 0 || track >= static_cast<int32_t>(tracks.size()))
    {
        return -1;
    }
    const int32_t id = tracks[static_cast<size_t>(track)]->elementId;
    return id < 0 ? -1 : elementIndex(id);
}

bool Document::trackFile(int32_t track, epiPath& file, bool& isRecorded) const
{
    const int32_t index = trackElementIndex(track);
    if (index < 0)
    {
        return false;
    }
    const DocumentElement& element = *elements[static_cast<size_t>(index)];
    file = static_cast<const epiPath&>(element);
    isRecorded = element.recorded;
    return true;
}

void Document::clearTrack(int32_t track)
{
    if (track >= 0 && track < static_cast<int32_t>(tracks.size()))
    {
        tracks[static_cast<size_t>(track)]->elementId = -1;
    }
}

void Document::removeElement(int32_t index)
{
    if (index < 0 || index >= static_cast<int32_t>(elements.size()))
    {
        return;
    }
    const int32_t id = elements[static_cast<size_t>(index)]->id;
    for (auto& track : tracks)
    {
        if (track->elementId == id)
        {
            track->elementId = -1;
        }
    }
    elements.erase(elements.begin() + index);
}

void Document::usageText(int32_t index, epiText& text) const
{
    text.clear();
    if (index < 0 || index >= static_cast<int32_t>(elements.size()))
    {
        return;
    }
    const int32_t id = elements[static_cast<size_t>(index)]->id;
    for (size_t t = 0; t < tracks.size(); ++t)
    {
        if (tracks[t]->elementId == id)
        {
            if (text.isEmpty())
            {
                text.appendChar('T');
            }
            // One digit per track: the tracks are numbered 1 to 4.
            text.appendChar(static_cast<char>('0' + static_cast<int>((t + 1) % 10)));
        }
    }
}

bool Document::newTakeFile(int32_t track, epiPath& file)
{
    if (track < 0 || track >= static_cast<int32_t>(tracks.size()))
    {
        return false;
    }
    for (int32_t n = 1; n <= kMaxTakes; ++n)
    {
        epiPath candidate = workFolder;
        candidate.printAssign("%sAudio_T%d_%d.aif", workFolder.c_str(), track + 1, n);
        if (candidate.exists())
        {
            continue;
        }
        // A name already in the pool (a take not yet on disk) is taken again; addElement keeps one entry.
        const int32_t id = addElement(candidate);
        DocumentElement& element = *elements[static_cast<size_t>(elementIndex(id))];
        element.recorded = true;
        tracks[static_cast<size_t>(track)]->elementId = id;
        file = candidate;
        return true;
    }
    return false;
}
