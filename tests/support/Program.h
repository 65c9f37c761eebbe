#pragma once

#include <string>

namespace testsupport
{

/** What a program run left: its exit status (-1 when a signal ended it), its output and its errors. */
struct ProgramResult
{
    int exit = -1;
    std::string out;
    std::string err;
};

/**
 * Runs `program` with `arguments` as the shell splits them, and waits for it. With `terminal` the
 * program writes to a pseudo-terminal, and all it wrote comes back in `out`.
 */
ProgramResult runProgram(const std::string& program, const std::string& arguments, bool terminal = false);

/** The kv3 program of this build, from the build folder the tests are given. */
std::string kv3Program();

} // namespace testsupport
