// The project file: a flat run of atoms that is read back in the order in which it was written.

#include "epi/epiAtomsFile.h"
#include "project/Document.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace
{

// The fewest bytes an element and a track can take in a file: every atom has a 12-byte header. A
// count in a damaged file that promises more than the file could hold is cut to what it could.
constexpr uint64_t kElementBytes = 3 * epiAtomsFile::kHeaderSize;
constexpr uint64_t kTrackBytes = 15 * epiAtomsFile::kHeaderSize;

bool writeFloat(epiAtomsFile& atoms, uint32_t tag, float value)
{
    return atoms.writeU32Ref(tag, &value);
}

bool writeInt(epiAtomsFile& atoms, uint32_t tag, int32_t value)
{
    return atoms.writeU32(tag, static_cast<uint32_t>(value));
}

bool writeBool(epiAtomsFile& atoms, uint32_t tag, bool value)
{
    return atoms.writeByte(tag, value ? 1 : 0);
}

bool readBool(epiAtomsFile& atoms, uint32_t tag, bool& value)
{
    uint8_t byte = 0;
    if (!atoms.readByte(tag, byte))
    {
        return false;
    }
    value = byte != 0;
    return true;
}

// A count read from the file, limited to what the rest of the file could hold.
int64_t boundedCount(int32_t count, uint64_t fileBytes, uint64_t bytesEach)
{
    if (count <= 0)
    {
        return 0;
    }
    return std::min<int64_t>(count, static_cast<int64_t>(fileBytes / bytesEach));
}

uint64_t fileSize(const epiPath& file)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(file.toNativeText().c_str(), error);
    return error ? 0 : static_cast<uint64_t>(size);
}

bool startsWith(const epiText& text, const epiText& prefix)
{
    return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

} // namespace

bool Document::save(const epiPath& file)
{
    epiPath target = file;
    target.replaceExtension(kExtension);
    rootFolder = target.folder();

    // Written beside the target and renamed when complete: a failed save leaves the old project whole.
    epiPath part = target;
    part.appendChars(".part");
    bool ok = false;
    {
        epiAtomsFile atoms;
        if (atoms.open(part, epiFile::kWrite | epiFile::kDeleteFirst))
        {
            ok = writeInt(atoms, epiCode("vers"), kVersion);
            ok = ok && writeInt(atoms, epiCode("elcn"), static_cast<int32_t>(elements.size()));
            for (const auto& element : elements)
            {
                ok = ok && writeInt(atoms, epiCode("elid"), element->id);
                ok = ok && atoms.writeText(epiCode("path"), element.get());
                ok = ok && writeBool(atoms, epiCode("kv3h"), element->recorded);
            }
            ok = ok && writeInt(atoms, epiCode("tkcn"), static_cast<int32_t>(tracks.size()));
            for (const auto& track : tracks)
            {
                ok = ok && writeInt(atoms, epiCode("elid"), track->elementId);
                ok = ok && writeFloat(atoms, epiCode("volu"), track->volume);
                ok = ok && writeFloat(atoms, epiCode("pann"), track->pan);
                ok = ok && writeFloat(atoms, epiCode("temp"), track->speed);
                ok = ok && writeFloat(atoms, epiCode("pich"), track->pitch);
                ok = ok && writeInt(atoms, epiCode("inps"), track->input);
                ok = ok && writeBool(atoms, epiCode("fxen"), track->effectEnabled);
                ok = ok && writeBool(atoms, epiCode("fxlo"), track->effectLoaded);
                ok = ok && writeBool(atoms, epiCode("solo"), track->solo);
                ok = ok && writeBool(atoms, epiCode("mute"), track->mute);
                ok = ok && writeBool(atoms, epiCode("rarm"), track->armed);
                ok = ok && writeBool(atoms, epiCode("froz"), track->frozen);
                ok = ok && atoms.writeText(epiCode("frpa"), &track->frozenPath);
                ok = ok && track->effectState.saveAtoms(&atoms);
            }
            ok = ok && atoms.writeText(epiCode("wdir"), &workFolder);
            ok = ok && atoms.writeText(epiCode("exfn"), &exportName);
            ok = ok && writeInt(atoms, epiCode("masv"), masterSlider);
            ok = ok && writeBool(atoms, epiCode("ckEn"), clickEnabled);
            ok = ok && writeFloat(atoms, epiCode("meTe"), clickTempo);
            ok = ok && writeInt(atoms, epiCode("meSn"), clickNumerator);
            ok = ok && writeInt(atoms, epiCode("meSd"), clickDenominator);
            ok = ok && writeInt(atoms, epiCode("mevo"), clickVolume);
            ok = ok && writeBool(atoms, epiCode("telk"), speedLink);
            ok = ok && atoms.writeText(epiCode("rpat"), &rootFolder);
            ok = ok && writeInt(atoms, epiCode("sara"), sampleRate);
            ok = ok && writeBool(atoms, epiCode("loen"), loopEnabled);
            // Only the low words of the loop points are kept: a loop beyond 2^32 frames is lost.
            ok = ok && atoms.writeU32(epiCode("lost"), static_cast<uint32_t>(loopStart));
            ok = ok && atoms.writeU32(epiCode("loso"), static_cast<uint32_t>(loopEnd));
            ok = ok && writeFloat(atoms, epiCode("mate"), speedRatio);
            ok = ok && writeFloat(atoms, epiCode("inga"), inputGain);
            ok = atoms.close() && ok;
        }
    }
    if (ok)
    {
        ok = std::rename(part.toNativeText().c_str(), target.toNativeText().c_str()) == 0;
    }
    if (!ok)
    {
        part.remove();
        return false;
    }
    path = target;
    name = target.baseName();
    modified = false;
    return true;
}

bool Document::readTracks(epiAtomsFile& atoms, uint64_t fileBytes)
{
    int32_t count = 0;
    const bool counted = atoms.readU32(epiCode("tkcn"), count);
    const int64_t n = boundedCount(count, fileBytes, kTrackBytes);
    for (int64_t i = 0; i < n; ++i)
    {
        // A field that can't be read keeps the record's default.
        auto track = std::make_unique<DocumentTrack>();
        atoms.readU32(epiCode("elid"), track->elementId);
        atoms.readU32(epiCode("volu"), track->volume);
        atoms.readU32(epiCode("pann"), track->pan);
        atoms.readU32(epiCode("temp"), track->speed);
        atoms.readU32(epiCode("pich"), track->pitch);
        atoms.readU32(epiCode("inps"), track->input);
        readBool(atoms, epiCode("fxen"), track->effectEnabled);
        readBool(atoms, epiCode("fxlo"), track->effectLoaded);
        readBool(atoms, epiCode("solo"), track->solo);
        readBool(atoms, epiCode("mute"), track->mute);
        readBool(atoms, epiCode("rarm"), track->armed);
        readBool(atoms, epiCode("froz"), track->frozen);
        atoms.readText(epiCode("frpa"), track->frozenPath);
        track->effectState.loadAtoms(&atoms);
        tracks.push_back(std::move(track));
    }
    return counted;
}

bool Document::readSession(epiAtomsFile& atoms)
{
    // From here on every field must be there; the first one missing ends the reading.
    int32_t loopWord = 0;
    if (!atoms.readText(epiCode("wdir"), workFolder) || !atoms.readText(epiCode("exfn"), exportName) ||
        !atoms.readU32(epiCode("masv"), masterSlider) || !readBool(atoms, epiCode("ckEn"), clickEnabled) ||
        !atoms.readU32(epiCode("meTe"), clickTempo) || !atoms.readU32(epiCode("meSn"), clickNumerator) ||
        !atoms.readU32(epiCode("meSd"), clickDenominator) || !atoms.readU32(epiCode("mevo"), clickVolume) ||
        !readBool(atoms, epiCode("telk"), speedLink) || !atoms.readText(epiCode("rpat"), rootFolder) ||
        !atoms.readU32(epiCode("sara"), sampleRate) || !readBool(atoms, epiCode("loen"), loopEnabled))
    {
        return false;
    }
    // The high words stay as they were in memory: the file holds only the low ones.
    if (!atoms.readU32(epiCode("lost"), loopWord))
    {
        return false;
    }
    loopStart = static_cast<int64_t>((static_cast<uint64_t>(loopStart) & 0xFFFFFFFF00000000ull) |
                                     static_cast<uint32_t>(loopWord));
    if (!atoms.readU32(epiCode("loso"), loopWord))
    {
        return false;
    }
    loopEnd = static_cast<int64_t>((static_cast<uint64_t>(loopEnd) & 0xFFFFFFFF00000000ull) |
                                   static_cast<uint32_t>(loopWord));
    if (!atoms.readU32(epiCode("mate"), speedRatio))
    {
        return false;
    }
    // Files from before the input gain was kept end here; they get the usual gain.
    if (!atoms.readU32(epiCode("inga"), inputGain))
    {
        inputGain = kDefaultInputGain;
    }
    return true;
}

bool Document::load(const epiPath& file)
{
    elements.clear();
    tracks.clear();
    bool ok = false;
    epiAtomsFile atoms;
    const bool opened = atoms.open(file, epiFile::kRead);
    if (opened)
    {
        // A field that can't be read keeps what it held: nothing is zeroed behind the reader's back.
        atoms.setClearOnFail(false);
        const uint64_t bytes = fileSize(file);
        int32_t version = 0;
        if (atoms.readU32(epiCode("vers"), version) && version == kVersion)
        {
            int32_t count = 0;
            atoms.readU32(epiCode("elcn"), count);
            const int64_t n = boundedCount(count, bytes, kElementBytes);
            for (int64_t i = 0; i < n; ++i)
            {
                auto element = std::make_unique<DocumentElement>();
                atoms.readU32(epiCode("elid"), element->id);
                atoms.readText(epiCode("path"), *element);
                readBool(atoms, epiCode("kv3h"), element->recorded);
                elements.push_back(std::move(element));
            }
            readTracks(atoms, bytes);
            ok = readSession(atoms);
        }
        atoms.close();
    }
    // Whatever was read, the project must be usable: a tempo the interface can show (a damaged value
    // that isn't a number counts as too slow), and four tracks.
    if (!(clickTempo >= kMinTempo))
    {
        clickTempo = kMinTempo;
    }
    ensureTracks();
    if (opened)
    {
        path = file;
        name = file.baseName();
    }
    // A project that was moved no longer records into its old folder.
    if (static_cast<const std::string&>(file.folder()) != static_cast<const std::string&>(rootFolder))
    {
        workFolder.clear();
    }
    return ok;
}

int32_t Document::locateFiles(DocumentLocator* locator)
{
    const epiPath current = path.folder();
    const bool moved = !rootFolder.isEmpty() && static_cast<const std::string&>(current) !=
                                                    static_cast<const std::string&>(rootFolder);
    int32_t missing = 0;
    auto locateOne = [&](epiPath& file)
    {
        if (moved && startsWith(file, rootFolder))
        {
            epiPath candidate = current;
            candidate.append(file, rootFolder.size(), std::string::npos);
            if (candidate.exists())
            {
                file = candidate;
            }
        }
        if (file.exists())
        {
            return;
        }
        epiText title("Locate: ");
        title.appendTextValue(file.lastComponent());
        if (locator == nullptr || !locator->locate(file, title) || !file.exists())
        {
            ++missing;
        }
    };
    for (auto& element : elements)
    {
        locateOne(*element);
    }
    for (auto& track : tracks)
    {
        if (track->frozen)
        {
            locateOne(track->frozenPath);
        }
    }
    return missing;
}
