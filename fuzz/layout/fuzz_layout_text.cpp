// Any bytes read as a layout give a tree whose children know their parent and their place, and
// that the flat writer writes and the reader reads again with as many children.

#include "epi/epiText.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace
{

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

void requireConsistent(epiUbo& object, int depth)
{
    require(depth < 64);
    for (int32_t i = 0; i < object.childCount(); ++i)
    {
        epiUbo* child = object.children()[size_t(i)];
        require(child->parent() == &object);
        require(child->childIndex() == i);
        requireConsistent(*child, depth + 1);
    }
}

bool plainText(const epiText& text)
{
    return text.find_first_of("<>") == std::string::npos;
}

// Nothing that the writer puts between tags can be read as a tag.
bool writtenAsIs(epiUbo& root)
{
    std::vector<epiUbo*> objects{&root};
    for (epiUbo* child : root.children())
        objects.push_back(child);
    epiText value;
    for (epiUbo* object : objects)
    {
        if (!plainText(object->text()) || !plainText(epiCodeText(object->name())))
            return false;
        for (const uint32_t* code = object->attributeCodes(); *code != 0; ++code)
            if (object->getAttribute(*code, value) && !plainText(value))
                return false;
    }
    return true;
}

epiWindowApplication& application()
{
    static epiWindowApplication app;
    static const bool started = app.start();
    require(started);
    return app;
}

epiUbo* newRoot(epiWindowApplication& app)
{
    auto* root = new epiUiContainer();
    root->startRefCount();
    root->start();
    root->setOwner(&app);
    return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    epiWindowApplication& app = application();
    const epiText text(std::string_view(reinterpret_cast<const char*>(data), size));

    epiUbo* root = newRoot(app);
    const bool loaded = root->loadLayoutText(text);
    requireConsistent(*root, 0);
    root->setSize(640, 480);
    root->relayout();

    epiText written;
    epiWriteLayoutFile(*root, written);
    epiUbo* back = newRoot(app);
    // Texts and values are written as they stand, so markup inside them may change the shape of
    // what is read back; the file and its count of children hold whenever nothing of the kind is there.
    const bool readBack = back->loadLayoutText(written);
    requireConsistent(*back, 0);
    if (loaded && writtenAsIs(*root))
    {
        require(readBack);
        require(back->childCount() == root->childCount());
    }

    root->stop();
    back->stop();
    app.purgeDisposed();
    return 0;
}
