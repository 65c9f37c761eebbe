#include "resources/lint/PackLint.h"

#include "epi/epiFileDump.h"
#include "epi/epiResources.h"
#include "epi/epiXmlChunk.h"

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

namespace packlint
{
namespace
{

constexpr const char* kImageCodes[] = {"irOf", "ipOf", "irOn", "ipOn", "irDi", "disb", "IcOn", "IcOf"};

std::string codeText(uint32_t code)
{
    return std::string(epiCodeText(code));
}

bool isButton(uint32_t kind)
{
    return kind == epiCode("iBbt") || kind == epiCode("iBck") || kind == epiCode("iBrd");
}

std::string where(const Layout& layout, const Item& item)
{
    return layout.file + ": " + codeText(item.object->name()) + ": ";
}

} // namespace

const Item* Layout::find(const char* name) const
{
    const std::vector<const Item*> found = all(name);
    return found.empty() ? nullptr : found.front();
}

std::vector<const Item*> Layout::all(const char* name) const
{
    std::vector<const Item*> found;
    for (const Item& item : items)
        if (item.object->name() == epiText(name).code())
            found.push_back(&item);
    return found;
}

std::string attribute(const epiUbo& object, const char* code)
{
    std::string value;
    for (const auto& [read, text] : object.attributesRead())
        if (read == epiText(code).code())
            value = text;
    return value;
}

Pack::~Pack()
{
    for (Layout* layout : layouts_)
    {
        layout->root->stop();
        delete layout;
    }
}

std::vector<std::string> Pack::names(const char* kind) const
{
    epiText list;
    std::vector<std::string> names;
    if (app_.resources() == nullptr || !app_.resources()->listKind(epiText(kind).code(), list, true))
        return names;
    std::istringstream lines(list);
    for (std::string line; std::getline(lines, line);)
    {
        if (!line.empty() && line.back() == '\r') // the list ends its lines with "\r\n"
            line.pop_back();
        if (!line.empty())
            names.push_back(line);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool Pack::read(const char* kind, const std::string& name, std::string& bytes) const
{
    epiText text;
    const epiText resource(name);
    if (app_.resources() == nullptr || !app_.resources()->readText(&resource, epiText(kind).code(), text))
        return false;
    bytes = text;
    return true;
}

const Layout* Pack::layout(const std::string& file, std::string& error)
{
    for (const Layout* loaded : layouts_)
        if (loaded->file == file)
            return loaded;
    std::string text;
    if (!read("laya", file, text))
    {
        error = file + ": not in the pack";
        return nullptr;
    }
    const epiText source(text); // the chunks point into it
    const epiXmlChunk content = epiXmlChunk(source).child("epi").child("content");
    auto* root = dynamic_cast<epiUbo*>(app_.newObject(epiCode("GrUi"), epiCode("iCon"), 0));
    root->startRefCount();
    root->setOwner(&app_);
    root->start();
    auto* layout = new Layout{file, content.child("kind").text().code(), root, {}};
    layouts_.push_back(layout);
    if (content.isEmpty() || !root->loadLayoutNamed(epiText(file)))
    {
        error = file + ": the loader finds no content";
        return nullptr;
    }
    epiXmlChunkEnumerator items(content.child("itemslist"));
    items.setName("item");
    epiXmlChunk item;
    std::vector<uint32_t> kinds;
    while (items.next(&item, nullptr))
        kinds.push_back(item.child("kind").text().code());
    if (int32_t(kinds.size()) != root->childCount())
    {
        error = file + ": " + std::to_string(kinds.size()) + " items, the loader made " +
                std::to_string(root->childCount());
        return nullptr;
    }
    for (size_t i = 0; i < kinds.size(); ++i)
        layout->items.push_back(Item{kinds[i], root->childAt(int32_t(i))});
    return layout;
}

bool Pack::imageSize(const std::string& name, int& width, int& height) const
{
    std::string png;
    if (!read("imag", name, png) || png.size() < 24 || png.compare(1, 3, "PNG") != 0)
        return false;
    auto word = [&](size_t at)
    {
        return int(uint8_t(png[at])) << 24 | int(uint8_t(png[at + 1])) << 16 |
               int(uint8_t(png[at + 2])) << 8 | int(uint8_t(png[at + 3]));
    };
    width = word(16);
    height = word(20);
    return true;
}

void Pack::lintItem(const Layout& layout, const Item& item, std::vector<std::string>& faults)
{
    const epiUbo& object = *item.object;
    const epiRect& frame = object.frame();
    const std::string at = where(layout, item);
    for (const char* code : kImageCodes)
    {
        const std::string image = attribute(object, code);
        int w = 0, h = 0;
        if (image.empty())
            continue;
        if (!imageSize(image, w, h))
        {
            faults.push_back(at + code + " names '" + image + "', which the pack lacks");
            continue;
        }
        const int frames = std::max(1, std::atoi(attribute(object, "frms").c_str()));
        const bool exact = isButton(item.kind) || item.kind == epiCode("iBfi");
        const bool fits = exact ? (w == frame.width() && h == frame.height() * frames)
                                : (w <= frame.width() && h <= frame.height());
        if (!fits)
            faults.push_back(at + code + " '" + image + "' is " + std::to_string(w) + "x" +
                             std::to_string(h) +
                             (exact ? ", not the frame's " : ", larger than the frame's ") +
                             std::to_string(frame.width()) + "x" + std::to_string(frame.height()) +
                             (frames > 1 ? " times " + std::to_string(frames) : ""));
    }
    if (isButton(item.kind) && !attribute(object, "irOf").empty())
        for (const char* code : {"ipOf", "irOn", "ipOn"})
            if (attribute(object, code).empty())
                faults.push_back(at + "has no " + code + " image, so that state draws nothing");
    const std::string font = attribute(object, "teFo");
    std::string bytes;
    if (!font.empty() && !read("fnts", "fontstrip_" + font + ".png", bytes) &&
        !(read("fnts", "fontmatrix_" + font + ".png", bytes) &&
          read("fnts", "fontmatrix_" + font + ".xml", bytes)))
        faults.push_back(at + "font '" + font + "' is not in the pack");
    const std::string child = attribute(object, "chil");
    if (!child.empty() && !read("laya", child, bytes))
        faults.push_back(at + "'chil' names '" + child + "', which the pack lacks");
}

std::vector<std::string> Pack::lint()
{
    std::vector<std::string> faults;
    // One element a line: an opening or closing tag, or a scalar with its text, which holds no
    // markup characters since the reader decodes no entities.
    const std::regex line(R"(\s*(<\?xml[^>]*\?>|</?[A-Za-z_]+>|<([A-Za-z_]+)>[^<>&]*</\2>)?\s*)");
    std::map<std::string, std::string> roots;
    for (const char* kind : {"laya", "menu"})
        for (const std::string& file : names(kind))
        {
            std::string text;
            read(kind, file, text);
            std::istringstream lines(text);
            int number = 0;
            for (std::string l; std::getline(lines, l);)
                if (++number, !std::regex_match(l, line))
                    faults.push_back(file + ":" + std::to_string(number) + ": not one element: " + l);
            const uint32_t code =
                epiXmlChunk(epiText(text)).child("epi").child("content").child("name").text().code();
            const std::string key = std::string(kind) + " " + codeText(code);
            if (!roots.emplace(key, file).second)
                faults.push_back(file + ": its root name '" + codeText(code) + "' is also that of " +
                                 roots[key]);
            if (std::string(kind) != "laya")
                continue;
            std::string error;
            const Layout* layout = this->layout(file, error);
            if (layout == nullptr)
            {
                faults.push_back(error);
                continue;
            }
            for (const Item& item : layout->items)
                lintItem(*layout, item, faults);
        }
    return faults;
}

} // namespace packlint
