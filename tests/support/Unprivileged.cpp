#include "tests/support/Unprivileged.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport
{

bool canForkThreaded()
{
#if defined(__SANITIZE_THREAD__)
    return false;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
    return false;
#else
    return true;
#endif
#else
    return true;
#endif
}

::testing::AssertionResult asUnprivileged(const std::function<bool()>& check)
{
    if (::geteuid() != 0)
    {
        return check() ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "the check failed";
    }
    const pid_t child = ::fork();
    if (child < 0)
    {
        return ::testing::AssertionFailure() << "cannot fork";
    }
    if (child == 0)
    {
        if (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedGroup) != 0 ||
            ::setuid(kUnprivilegedUser) != 0)
        {
            ::_exit(10);
        }
        ::_exit(check() ? 0 : 11);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
    {
        return ::testing::AssertionFailure() << "the unprivileged child did not finish";
    }
    switch (WEXITSTATUS(status))
    {
    case 0:
        return ::testing::AssertionSuccess();
    case 10:
        return ::testing::AssertionFailure() << "could not become the unprivileged user";
    default:
        return ::testing::AssertionFailure() << "the check failed as the unprivileged user";
    }
}

} // namespace testsupport
