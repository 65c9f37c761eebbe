#include "app/kv3/Cli.h"

#include <string>
#include <vector>

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    return kv3cli::runMain(args, KV3_VERSION);
}
