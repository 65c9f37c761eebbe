#pragma once

#include "epi/epiPath.h"
#include "epi/epiText.h"

/** A text that loads itself from a file and saves itself to one, byte for byte, without decoding. */
class epiTextFile : public epiText
{
public:
    epiTextFile() = default;
    using epiText::epiText;
    using epiText::operator=;

    /**
     * The text becomes the file's bytes. @return false when the file can't be opened (the text is
     * unchanged) or read (the text is emptied)
     */
    virtual bool loadFile(const char* path);
    /** loadFile() from a path. */
    virtual bool loadFile(const epiPath& path);
    /**
     * Writes the bytes to the file, which is created or rewritten to exactly this length; `a` and
     * `b` are spare. When nothing could be written, an empty text included, the file is deleted.
     * @return true when the bytes were written
     */
    virtual bool saveFile(const char* path, int32_t a = 0, int32_t b = 0);
    /** saveFile() to a path. */
    virtual bool saveFile(const epiPath& path, int32_t a = 0, int32_t b = 0);
};
