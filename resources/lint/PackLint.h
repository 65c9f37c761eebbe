#pragma once

// Reads a resource pack's layouts the way the program does and checks what a layout promises:
// every image, font and child layout it names is in the pack, images fit the widgets that show
// them, window codes are unique, and each file keeps one element a line with plain texts.

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"

#include <cstdint>
#include <string>
#include <vector>

namespace packlint
{

/** One item of a layout file: its kind as written and the object the loader made of it. */
struct Item
{
    uint32_t kind = 0;
    epiUbo* object = nullptr;
};

/** A layout file loaded through the real loader under a plain container. */
struct Layout
{
    std::string file;
    uint32_t rootKind = 0;
    epiUbo* root = nullptr;
    std::vector<Item> items;

    /** The first item named `name`, as the program's lookup finds it; null when none. */
    const Item* find(const char* name) const;
    /** Every item named `name`, in file order. */
    std::vector<const Item*> all(const char* name) const;
};

/** The last value an object read for the attribute `code` ("" when it read none). */
std::string attribute(const epiUbo& object, const char* code);

/** The pack open in `app`'s resources. */
class Pack
{
public:
    explicit Pack(epiWindowApplication& app) : app_(app) {}
    ~Pack();
    Pack(const Pack&) = delete;
    Pack& operator=(const Pack&) = delete;

    /** The names of every resource of `kind` (four letters, as "laya"), sorted. */
    std::vector<std::string> names(const char* kind) const;
    /** The whole resource as bytes. @return false when missing */
    bool read(const char* kind, const std::string& name, std::string& bytes) const;
    /** Loads the layout `file`. @return null, with `error` set, when it can't be read */
    const Layout* layout(const std::string& file, std::string& error);
    /** The pixel size of the PNG image `name`. @return false when missing or not a PNG */
    bool imageSize(const std::string& name, int& width, int& height) const;

    /** Every fault of the pack's layouts and menus, one readable line each; empty when none. */
    std::vector<std::string> lint();

private:
    void lintItem(const Layout& layout, const Item& item, std::vector<std::string>& faults);

    epiWindowApplication& app_;
    std::vector<Layout*> layouts_;
};

} // namespace packlint
