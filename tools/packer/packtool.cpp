// packtool DIR OUT: the build's own pack maker. It does what `kv3 pack build` does, without needing
// the program that the pack is linked into.

#include "tools/packer/PackBuilder.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: packtool DIR OUT\n");
        return 2;
    }
    std::string error;
    if (!PackBuilder::build(argv[1], argv[2], error))
    {
        std::fprintf(stderr, "packtool: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
