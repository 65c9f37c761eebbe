#pragma once

#include "epi/epiAtomsFile.h"
#include "epi/epiFile.h"
#include "epi/epiObject.h"
#include "epi/epiPath.h"
#include "epi/epiRect.h"
#include "epi/epiResourcePack.h"
#include "epi/epiText.h"

#include <cstdint>

class epiBitmap;
class epiBitmapCasts;
class epiFileDump;
class epiFonts;

/**
 * Byte ranges linked into the executable, each under a numeric id: the executable's own resources.
 * A pack embedded by the build registers itself here before main() runs (see
 * resources/EmbeddedPack.cmake); the native pack medium finds it by id.
 */
namespace epiLinkedResources
{

/** Registers `size` bytes at `data` under `id`; a later range under the same id replaces it. */
void add(int32_t id, const void* data, uint32_t size);

/** Removes the range under `id`, if any. */
void remove(int32_t id);

/**
 * Finds the range registered under the resource name `name`, "#" and the decimal id.
 * @return false, leaving the outputs alone, when the name isn't of that form or nothing is there
 */
bool find(const char* name, const void** data, uint32_t* size);

/** The id that an embedded program pack is linked under. */
constexpr int32_t kProgramPackId = 22000;

} // namespace epiLinkedResources

/** A place that resource names are read from: a folder on disk. Names are relative to rootPath. */
class epiResMediaFiles : public epiApplicationObject
{
public:
    epiResMediaFiles() = default;
    ~epiResMediaFiles() override = default;

    /** Opens the resource memory `id` of `module`; a folder has none. @return false */
    virtual bool openId(int32_t id, void* module);
    /** Takes `path` as the root. @return whether the root holds "epi.frs" */
    virtual bool open(const epiPath& path);
    /** Forgets the root. */
    virtual void close();
    /** Nothing to flush. */
    virtual void flush() {}
    virtual bool reservedQuery() { return false; }
    /** Reads the file `name` below the root into `dump`. */
    virtual bool read(const epiText& name, epiFileDump& dump);
    /** True: the program never changes its resources while running. */
    virtual bool readOnly() { return true; }
    /** Saves `length` bytes at `data` as the file `name` below the root. @return true on success */
    virtual bool write(const epiText& name, const void* data, uint32_t length);
    /** The file `name` below the root exists. */
    virtual bool exists(const epiText& name);
    virtual epiPath* rootPathRef() { return &rootPath_; }
    virtual bool isFolder() { return true; }
    /** Assigns the root plus `name` to `dest`. @return true; false for media that aren't folders */
    virtual bool fullPath(const epiText& name, epiPath& dest);
    /**
     * Appends the names of the files in the folder `folder` (relative to the root, no leading
     * '/'), one a line, to `dest`; with `recursive` the names below come too as "sub/name".
     */
    virtual bool list(const epiText& folder, epiText& dest, bool recursive);

protected:
    epiPath rootPath_;
};

/** A resource pack file as the medium. */
class epiResMediaPack : public epiResMediaFiles
{
public:
    epiResMediaPack() = default;
    ~epiResMediaPack() override;

    bool openId(int32_t id, void* module) override;
    /** Opens `path` as a pack; on success the path becomes the root. */
    bool open(const epiPath& path) override;
    void close() override;
    bool read(const epiText& name, epiFileDump& dump) override;
    /** Answers true and writes nothing: a pack is never changed in place. */
    bool write(const epiText& name, const void* data, uint32_t length) override;
    bool exists(const epiText& name) override;
    bool isFolder() override { return false; }
    /** A pack's entries have no path on disk: clears `dest`. @return false */
    bool fullPath(const epiText& name, epiPath& dest) override;
    /** Lists the entries under "/" + `folder`; without `recursive`, names holding '/' are skipped. */
    bool list(const epiText& folder, epiText& dest, bool recursive) override;

    epiResourcePack& pack() { return pack_; }

protected:
    epiResourcePack pack_;
};

/** The pack linked into the executable, read in place through a memory file. */
class epiResMediaNativePack : public epiResMediaPack
{
public:
    epiResMediaNativePack() = default;
    ~epiResMediaNativePack() override;

    /**
     * Finds the linked range "#id" (a null `module` is the executable; other modules have no
     * linked ranges here) and parses the pack over it without copying.
     */
    bool openId(int32_t id, void* module) override;
    void close() override;

private:
    epiRamFile memory_;
    epiAtomsFile atoms_;
};

/**
 * The one way to the interface's resources: layouts, menus, images, fonts and auxiliary files.
 * One medium is active at a time (a folder, a pack file or the pack in the executable); there is
 * no fallback from one medium to another.
 */
class epiResources : public epiApplicationObject
{
public:
    epiResources() = default;
    ~epiResources() override;

    /**
     * Opens a folder medium when `path` ends in ".frs", a pack when it ends in ".prs" (either case).
     * @return false, with no medium, for any other extension or when the medium won't open
     */
    virtual bool openPath(const epiPath& path);
    virtual bool openPathChars(const char* path);
    /** Opens the folder `path` as the medium whatever its name; it must hold "epi.frs". */
    bool openFolder(const epiPath& path);
    /** Opens the pack file `path` as the medium whatever its name. */
    bool openPack(const epiPath& path);
    /** Opens the pack linked into the executable under `id` (0 means 22000). */
    virtual bool openNative(int32_t id, void* module);
    /**
     * Opens the first medium found of: the linked pack; `fileName`.frs and .prs; `appName`.app/
     * Contents/Resources/`fileName`.frs and .prs; ../Resources/`fileName`.frs and .prs. Relative
     * paths are taken from the application's folder. A null `fileName` means `appName`.
     */
    virtual bool openSearch(const char* appName, const char* fileName);
    /** Closes and deletes the medium. */
    virtual void closeMedia();
    virtual void flushMedia();
    /** The whole resource as text. @return false without a medium or such a resource */
    virtual bool readText(const epiText* name, uint32_t kind, epiText& dest);
    virtual bool readTextChars(const char* name, uint32_t kind, epiText& dest);
    /** Writes through the medium; a pack answers true and keeps its bytes. */
    virtual bool writeText(const epiText* name, uint32_t kind, const epiText* data);
    virtual bool writeTextChars(const char* name, uint32_t kind, const epiText* data);
    /** Reads the resource into the caller's dump. */
    virtual bool readDump(const epiText* name, uint32_t kind, epiFileDump& dump);
    /** A medium is open and it is a folder. */
    virtual bool isFolderMedia();
    /** The resource's path on disk when the medium is a folder; false otherwise. */
    virtual bool fullPath(const epiText* name, uint32_t kind, epiPath& dest);
    /**
     * The table of loaded bitmaps, the fonts and a new empty bitmap. The interface's resources
     * (epiUiResources) own them; these core resources have no images and answer null.
     */
    virtual epiBitmapCasts* castsRef() { return nullptr; }
    virtual epiFonts* fontsRef() { return nullptr; }
    virtual epiBitmap* newBitmap() { return nullptr; }
    /** Drop the named loaded bitmap, or all of them; for images that no widget shows any more. */
    virtual void purgeCast(const epiText*) {}
    virtual void purgeAllCasts() {}
    /** A quiet moment for the bitmap table. */
    virtual void castsIdle() {}
    /**
     * The design size of a layout: the element "size" ("w,h") under epi/content.
     * @return false, leaving `size` alone, when the layout or its size is missing
     */
    virtual bool layoutSize(const epiText* name, epiPoint& size);

    /** The folder that `kind` selects ("layouts/" for 'laya'); "" for an unknown kind. */
    static const char* prefix(uint32_t kind);
    /** The medium's relative path of the resource: the kind's prefix and the name. */
    static void resolve(const epiText* name, uint32_t kind, epiText& dest);
    /** The names of every resource of `kind`, one a line. @return false without a medium */
    bool listKind(uint32_t kind, epiText& dest, bool recursive);
    /**
     * The first ".xml" resource of `kind` whose epi/content/name, as a four-character code,
     * equals `code`; its name (relative to the kind's folder) goes to `dest`.
     */
    bool findByInternalName(uint32_t kind, uint32_t code, epiText& dest);

    /** The active medium, null when none is open. */
    epiResMediaFiles* media() const { return media_; }

    /** Closes the medium, then the base. */
    void stop() override;

private:
    bool adopt(epiResMediaFiles* medium, const epiPath& path);

    epiResMediaFiles* media_ = nullptr;
};
