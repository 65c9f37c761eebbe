#pragma once

#include "epi/epiFileDump.h"
#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>
#include <memory>
#include <vector>

class Manager;
class epiAtomsFile;

/**
 * One audio file of the project's pool. The path is the file itself. A plain record: the project file
 * and the file list read and write its fields directly.
 */
class DocumentElement : public epiPath
{
public:
    DocumentElement() = default;
    explicit DocumentElement(const epiPath& path) : epiPath(path) {}

    /** Unique in the pool, positive once assigned; -1 before. */
    int32_t id = -1;
    /** Kept for the record's layout; nothing reads it. */
    bool spare = false;
    /** The program wrote this file (a take), in contrast to an imported one. */
    bool recorded = false;
    /** Highlighted in the file list; not saved. */
    bool selected = false;
};

/** What the project keeps of one track. A plain record, saved field by field. */
class DocumentTrack
{
public:
    DocumentTrack() = default;
    DocumentTrack(const DocumentTrack&) = delete;
    DocumentTrack& operator=(const DocumentTrack&) = delete;
    virtual ~DocumentTrack() = default;

    /** The element on this track, -1 for none. */
    int32_t elementId = -1;
    /** dB of the mixer strip. */
    float volume = 0.0f;
    /** -1 left .. +1 right. */
    float pan = 0.0f;
    /** Playing speed, 1.0 normal. */
    float speed = 1.0f;
    /** Semitones. */
    float pitch = 0.0f;
    bool effectEnabled = true;
    bool effectLoaded = true;
    /** The plug-in's saved state. */
    epiFileDump effectState;
    /** 0 left, 1 right, 2 both. */
    int32_t input = 2;
    bool armed = false;
    bool solo = false;
    bool mute = false;
    bool frozen = false;
    epiPath frozenPath;
};

/** The pool of audio files; owns its entries. */
class DocumentElements : public std::vector<std::unique_ptr<DocumentElement>>
{
public:
    virtual ~DocumentElements() = default;
    /** Deletes every entry. */
    virtual void clear() { std::vector<std::unique_ptr<DocumentElement>>::clear(); }
};

/** The track records; owns its entries. */
class DocumentTracks : public std::vector<std::unique_ptr<DocumentTrack>>
{
public:
    virtual ~DocumentTracks() = default;
    /** Deletes every entry. */
    virtual void clear() { std::vector<std::unique_ptr<DocumentTrack>>::clear(); }
};

/**
 * Answers the question a project load asks when one of its files is missing. The window answers with
 * its open-file dialog; a program without a window skips the file.
 */
class DocumentLocator
{
public:
    virtual ~DocumentLocator() = default;
    /**
     * @param path the missing file; on true it is replaced by the user's choice
     * @param title "Locate: " and the file's name
     * @return true when a file was chosen
     */
    // [ui thread]
    virtual bool locate(epiPath& path, const epiText& title) = 0;
};

/**
 * The project: a pool of audio files, four track records and the session's metronome, mix and loop
 * settings. It plays nothing and knows no engine object except through applyAll and captureAll, which
 * copy the track records into a Manager and back. A plain record for the panels that edit it: its
 * fields are read and written directly. Everything runs on the interface thread.
 */
class Document
{
public:
    /** The extension of project files. */
    static constexpr const char* kExtension = "kv3h";
    /** The only format version this program reads and writes. */
    static constexpr int32_t kVersion = 4;
    /** Number of track records a project always has. */
    static constexpr int32_t kTracks = 4;
    /** Lowest tempo a project may hold; anything slower read from a file is raised to it. */
    static constexpr float kMinTempo = 60.0f;
    /** Input gain of a file that doesn't store one, dB. */
    static constexpr float kDefaultInputGain = 6.0f;
    /** Takes per track that newTakeFile tries before it gives up. */
    static constexpr int32_t kMaxTakes = 1000;
    /** The master slider's position nearest to 0 dB (+0.02 dB). */
    static constexpr int32_t kMasterUnity = 870;

    /** The master volume in dB that a slider position stands for. */
    static float masterDb(int32_t slider) { return -40.0f + static_cast<float>(slider) * 46.0f / 1000.0f; }

    /** A new project: four tracks with only the first armed, on the left input, effect on. */
    Document();
    virtual ~Document();
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    /**
     * Back to a new project: empties path and workFolder, the pool and the tracks (four fresh ones),
     * and gives the session values their defaults. sampleRate and inputGain come from the
     * application's settings and are left, as are name, rootFolder, exportName and masterSlider.
     */
    void reset();
    /** Adds track records until there are four: the first armed on the left input with its effect. */
    void ensureTracks();
    /** For a new project: stores the path and takes the name from its file name. */
    void setPath(const epiPath& newPath);

    /**
     * Puts a file in the pool, unless an entry has this path already.
     * @return the id of the entry: the smallest positive id that is free, for a new one
     */
    int32_t addElement(const epiPath& file);
    /** Whether an entry has this path. */
    bool findElement(const epiPath& file) const;
    /** Index in the pool of the entry with this id, -1 if none. */
    int32_t elementIndex(int32_t id) const;
    /** Index in the pool of the track's element, -1 if none (or no such track). */
    int32_t trackElementIndex(int32_t track) const;
    /** The track's file: false when it holds none. */
    bool trackFile(int32_t track, epiPath& file, bool& isRecorded) const;
    /** Takes the file off the track (it stays in the pool). */
    void clearTrack(int32_t track);
    /** Takes the entry off every track, then out of the pool. The file stays on disk. */
    void removeElement(int32_t index);
    /** The tracks that hold the entry, as "T13" for tracks 1 and 3; empty for none. */
    void usageText(int32_t index, epiText& text) const;
    /**
     * Names the next take of a track: the first "Audio_T<track>_<n>.aif" in workFolder that isn't on
     * disk, n from 1 to 1000. The track gets a new recorded element for it.
     * @param track 0 to 3
     * @return false when all 1000 exist (or there is no such track): no take
     */
    bool newTakeFile(int32_t track, epiPath& file);

    /** Reads a track's strip and controls into its record; the effect's state last. */
    // [ui thread]
    void captureTrack(int32_t index, Manager& manager);
    /**
     * Pushes a track's record into the engine: strip, controls, file, freeze, arming, input, and last
     * the effect's state (the effect must exist before its state can reach it).
     */
    // [ui thread]
    void applyTrack(int32_t index, Manager& manager);
    /** captureTrack over the four tracks, in order. */
    // [ui thread]
    void captureAll(Manager& manager);
    /** applyTrack over the four tracks, in order. */
    // [ui thread]
    void applyAll(Manager& manager);

    /**
     * Finds the project's files after a load: every element, then the frozen file of every frozen
     * track. A path under rootFolder is first tried under the project's present folder (a moved
     * project folder finds its audio with no question); a path that still doesn't exist is put to
     * `locator` ("Locate: " and the name). With no locator, or on a refusal, the path stays.
     * @return the number of paths that still don't exist
     */
    // [ui thread]
    int32_t locateFiles(DocumentLocator* locator);

    /**
     * Writes the project file: the extension becomes "kv3h" and rootFolder the file's folder. The
     * file is written beside its final name and renamed when complete, so a failed save leaves any
     * earlier file whole. On success path and name follow the file and modified is cleared.
     * @return false when the file could not be written (rootFolder keeps its new value)
     */
    bool save(const epiPath& file);
    /**
     * Reads a project file. Only version 4 is read; a file that breaks off, or that misses a field
     * after the tracks, gives a partial project that is still usable: four tracks at least, a tempo
     * of at least 60. A file found in another folder than the one it was saved in loses its
     * workFolder.
     * @return true when every field was read (a missing input gain is allowed)
     */
    bool load(const epiPath& file);

    DocumentElements elements;
    DocumentTracks tracks;
    int32_t sampleRate = 44100;
    epiText name = "Untitled";
    epiPath path;
    epiPath workFolder;
    epiPath rootFolder;
    epiPath exportName;
    bool modified = false;
    /** Master slider, 0 to 1000: -40 dB plus value * 46 / 1000. */
    int32_t masterSlider = kMasterUnity;
    bool speedLink = true;
    bool clickEnabled = false;
    /** Session tempo before the speed ratio, 60 to 240. */
    float clickTempo = 120.0f;
    int32_t clickNumerator = 4;
    int32_t clickDenominator = 4;
    /** Percent. */
    int32_t clickVolume = 100;
    bool loopEnabled = false;
    /** Session frames. Only the low 32 bits are saved. */
    int64_t loopStart = 0;
    int64_t loopEnd = 0;
    float speedRatio = 1.0f;
    /** dB. */
    float inputGain = kDefaultInputGain;

private:
    bool readTracks(epiAtomsFile& atoms, uint64_t fileBytes);
    bool readSession(epiAtomsFile& atoms);
};
