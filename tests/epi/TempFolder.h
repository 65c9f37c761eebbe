#pragma once

#include "tests/support/TempFolder.h"

#include <string>

/** The shared temporary folder, named with a trailing '/' as the framework's folder paths are. */
class TempFolder
{
public:
    const std::string& path() const { return path_; }

private:
    testsupport::TempFolder folder_;
    std::string path_ = folder_.path() + "/";
};
