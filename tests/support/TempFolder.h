#pragma once

#include <string>

namespace testsupport
{

/**
 * A fresh folder of its own under /tmp, removed with everything in it when the object goes. When
 * the tests run as root it belongs to the unprivileged user, so that a check repeated as that user
 * (see Unprivileged.h) can reach it.
 */
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return path_; }
    /** The folder joined with a file name. */
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/** Whether a file or folder exists. */
bool exists(const std::string& path);

} // namespace testsupport
