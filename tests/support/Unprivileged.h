#pragma once

#include <gtest/gtest.h>

#include <functional>

#include <sys/types.h>

namespace testsupport
{

/** "nobody" and "nogroup" on Debian. */
constexpr uid_t kUnprivilegedUser = 65534;
constexpr gid_t kUnprivilegedGroup = 65534;

/** Whether this build can fork a threaded test process (the thread sanitizer can't follow one). */
bool canForkThreaded();

/**
 * Runs a check that relies on file permissions. Permissions don't bind root, so as root the check
 * runs in a forked child that has become the unprivileged user; its folders must be ones that user
 * can reach (a TempFolder is). As an ordinary user it simply runs here.
 */
::testing::AssertionResult asUnprivileged(const std::function<bool()>& check);

} // namespace testsupport
