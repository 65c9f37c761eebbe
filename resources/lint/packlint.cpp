// packlint PACK: checks the layouts and menus of a resource pack (see PackLint.h) and prints each
// fault on a line of its own. Exit status 0 when there is none, 1 when there are faults or the
// pack can't be opened, 2 on bad usage.

#include "resources/lint/PackLint.h"
#include "epi/epiResources.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fputs("usage: packlint PACK\n", stderr);
        return 2;
    }
    epiWindowApplication app;
    if (!app.start() || app.resources() == nullptr || !app.resources()->openPack(epiPath(argv[1])))
    {
        std::fprintf(stderr, "packlint: can't open the pack '%s'\n", argv[1]);
        return 1;
    }
    int faults = 0;
    {
        packlint::Pack pack(app);
        for (const std::string& fault : pack.lint())
        {
            std::fprintf(stderr, "%s\n", fault.c_str());
            ++faults;
        }
    }
    app.stop();
    return faults == 0 ? 0 : 1;
}
