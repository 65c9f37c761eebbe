// Any bytes loaded as a project file give a usable project: at least four tracks, a tempo the
// interface can show, no more records than the file had room for, and a project that saves again.

#include "project/Document.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace
{

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

std::string scratch(const char* name)
{
    return "/tmp/kv3-fuzz-project-" + std::to_string(::getpid()) + name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1u << 20)
        return 0;
    // The loader reads files by path, so the input goes to disk first.
    const std::string input = scratch(".kv3h");
    std::FILE* file = std::fopen(input.c_str(), "wb");
    if (file == nullptr)
        return 0;
    if (size > 0)
        std::fwrite(data, 1, size, file);
    std::fclose(file);

    Document doc;
    doc.load(epiPath(input));
    require(doc.tracks.size() >= 4);
    require(doc.clickTempo >= 60.0f);
    require(doc.elements.size() <= size / 36 + 1);
    require(doc.tracks.size() <= 4 + size / 180);
    epiText usage;
    for (size_t i = 0; i < doc.elements.size(); ++i)
        doc.usageText(static_cast<int32_t>(i), usage);
    doc.locateFiles(nullptr);

    // Whatever was read saves and reads back with the same shape.
    const std::string again = scratch("-again.kv3h");
    if (doc.save(epiPath(again)))
    {
        Document back;
        require(back.load(epiPath(again)));
        require(back.elements.size() == doc.elements.size());
        require(back.tracks.size() == doc.tracks.size());
    }
    std::remove(input.c_str());
    std::remove(again.c_str());
    return 0;
}
