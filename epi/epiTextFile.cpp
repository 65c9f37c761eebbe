#include "epi/epiTextFile.h"

#include "epi/epiFile.h"

bool epiTextFile::loadFile(const char* path)
{
    return loadFile(epiPath(path));
}

bool epiTextFile::loadFile(const epiPath& path)
{
    epiFile file;
    if (!file.open(path, epiFile::kRead))
        return false;
    const uint32_t length = file.size();
    if (length > uint32_t(INT32_MAX))
    {
        epiText::clear();
        return false;
    }
    resize(length);
    if (!file.read(data(), int32_t(length)))
    {
        epiText::clear();
        return false;
    }
    return true;
}

bool epiTextFile::saveFile(const char* path, int32_t a, int32_t b)
{
    return saveFile(epiPath(path), a, b);
}

bool epiTextFile::saveFile(const epiPath& path, int32_t a, int32_t b)
{
    if (size() > size_t(INT32_MAX))
        return false;
    epiFile file;
    if (!file.open(path, epiFile::kWrite, a, b))
        return false;
    int32_t written = 0;
    file.write(data(), int32_t(size()), &written);
    // close() cuts the file at the position: a shorter text leaves no old tail behind.
    file.close();
    if (written == 0)
    {
        // Deliberate: an empty save leaves no empty file behind, and says it wrote nothing.
        path.remove();
        return false;
    }
    return written == int32_t(size());
}
