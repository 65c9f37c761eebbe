#pragma once

#include "epi/epiText.h"

/**
 * A file path in the program's one portable notation: '/' separates, an absolute path begins with
 * '/', a folder path ends with '/'. A drive-letter path of a system that has drives is held as
 * "/Volumes/" + letter + the rest, so that C:\sounds\a.wav is /Volumes/C/sounds/a.wav.
 *
 * On Linux the native form is the portable one: toNative() gives the path itself (relative paths
 * are put under the base folder), and the "/Volumes/" rule is notation only. The drive-letter
 * conversions are still available as toWindowsNative() and fromWindowsNative().
 */
class epiPath : public epiText
{
public:
    /** Size of the buffer that toNative() fills: 2048 bytes and a NUL. */
    static constexpr size_t kNativeCapacity = 2049;
    /** Units of the buffer that toNativeWide() fills, terminator included. */
    static constexpr size_t kNativeWideCapacity = 65535;

    /** The dialog hook that the interface platform installs: `save` selects the save dialog. */
    using DialogHandler = bool (*)(epiPath& path, bool save);

    epiPath() = default;
    epiPath(const epiPath& other) = default;
    epiPath(epiPath&& other) noexcept = default;
    epiPath(const char* chars);
    epiPath(std::string_view bytes);
    epiPath(const std::string& bytes);
    explicit epiPath(const epiText& text);
    ~epiPath() override = default;

    epiPath& operator=(const epiPath& other) = default;
    epiPath& operator=(epiPath&& other) noexcept = default;
    epiPath& operator=(const char* chars);
    epiPath& operator=(const epiText& text);
    epiPath& operator=(const std::string& bytes);
    epiPath& operator=(std::string_view bytes);

    /**
     * The system's form of the path into `dest` (kNativeCapacity bytes): at most 2048 bytes and a
     * NUL. A relative path is put under `base`'s folder, or under the default base when `base` is
     * null (see setDefaultBase()).
     */
    virtual void toNative(char* dest, const epiPath* base = nullptr) const;
    /** Takes a path in the system's form. */
    virtual void fromNative(const char* native);
    /** Cuts everything after the last '/', which stays; with no '/' the path becomes empty. */
    virtual void removeLast();
    /** Appends '/' unless the path is empty or already ends with one. */
    virtual void ensureTrailingSlash();
    /** Appends `chars`, then ensureTrailingSlash(). */
    virtual void appendFolderChars(const char* chars);
    /** Appends `text`, then ensureTrailingSlash(). */
    virtual void appendFolderText(const epiText* text);
    /** One level up, to a folder: /a/b/c.txt and /a/b/ both become /a/. */
    virtual void goUp();
    /** The last byte is '/'. */
    virtual bool isFolder() const;
    /** The system knows a file or folder at the native path. */
    virtual bool exists() const;
    /** Non-empty and begins with '/'. */
    virtual bool isAbsolute() const;
    /**
     * The system's open-file dialog, starting at lastComponent(). @return true on a choice, which
     * replaces the path; false (path unchanged) on cancel, or while no interface platform is
     * installed.
     */
    // [ui thread]
    virtual bool askOpen();
    /** The save-file dialog, starting at the present path; otherwise as askOpen(). */
    // [ui thread]
    virtual bool askSave();
    /** toNative() with no base, as UTF-16 into `dest` of kNativeWideCapacity units. */
    virtual void toNativeWide(char16_t* dest) const;
    /** Takes a UTF-16 path in the system's form. */
    virtual void fromNativeWide(const char16_t* native);

    /** A copy after removeLast(): the folder, with its trailing '/'. */
    epiPath folder() const;
    /** Keeps this path's folder and puts `last` after it. */
    void replaceLast(const epiText* last);
    /** The file name; for a folder path the last folder's name without the '/'. */
    epiText lastComponent() const;
    /** lastField('.') of lastComponent(): a name with no '.' returns the whole name. */
    epiText extension() const;
    /** The last component without its last '.' and what follows; the whole name when there's no '.'. */
    epiText baseName() const;
    /** Rebuilds the path as folder, base name, '.', `extension`. */
    void replaceExtension(const epiText* extension);
    /** Rebuilds the path as folder, base name, '.', `extension`. */
    void replaceExtension(const char* extension);
    /** Rebuilds the path as folder, base name, `suffix`, '.', old extension: a.wav + _tmp = a_tmp.wav. */
    void appendToBaseName(const epiText* suffix);
    /** Rebuilds the path as folder, base name, `suffix`, '.', old extension. */
    void appendToBaseName(const char* suffix);
    /** Deletes the file. @return false on an empty path or when the system refuses */
    bool remove() const;
    /**
     * Becomes one of the system's folders, with a trailing '/': 'sApp' the program's folder,
     * 'sRot' the system root, 'uAps' and 'uPrf' the user's settings folder ($XDG_CONFIG_HOME),
     * 'uDes' the desktop, 'uDoc' and 'uHom' the home folder. With `create` the folder is made
     * (failure tolerated). @return false, path unchanged, for an unknown code or a failure
     */
    bool setSpecialFolder(uint32_t code, bool create);

    /** The native form as a text, without the 2048-byte limit of toNative(). */
    epiText toNativeText(const epiPath* base = nullptr) const;
    /**
     * The drive-letter form: base applied as in toNative(), then "/Volumes/C/x" becomes "C:\x"
     * and every other '/' a '\'. At most 2048 bytes and a NUL into `dest`.
     */
    void toWindowsNative(char* dest, const epiPath* base = nullptr) const;
    /** Takes a drive-letter path: '\' becomes '/', and "C:/x" becomes "/Volumes/C/x". */
    void fromWindowsNative(const char* native);

    /**
     * The folder that relative paths are taken from when toNative() gets no base; the
     * application sets its own folder here. The path must outlive its use; null removes it.
     */
    // [ui thread]
    static void setDefaultBase(const epiPath* base);
    /** The present default base, null when none. */
    static const epiPath* defaultBase();

    /**
     * Installs the open and save dialogs of the interface platform; null removes them. The handler
     * gets the whole path: the open dialog starts at its lastComponent(), the save dialog at its
     * native form. It answers true after replacing the path with the choice, false leaving it.
     */
    // [ui thread]
    static void setDialogHandler(DialogHandler handler);
};
