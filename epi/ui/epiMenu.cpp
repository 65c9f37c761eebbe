#include "epi/ui/epiMenu.h"

#include "epi/epiResources.h"
#include "epi/epiXmlChunk.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiWindowManager.h"

namespace
{

// A number element: its text as a decimal, 0 when the element is missing or empty.
int32_t numberOf(const epiXmlChunk& parent, const char* name)
{
    const epiXmlChunk element = parent.child(name);
    return element.isEmpty() ? 0 : element.text().toInt();
}

bool hasElement(const epiXmlChunk& parent, const char* name)
{
    epiXmlChunk content;
    return parent.findElementChars(name, &content, nullptr);
}

} // namespace

bool epiMenu::load(epiResources* resources, const epiText& name)
{
    epiText text;
    if (resources == nullptr || !resources->readText(&name, epiCode("menu"), text))
    {
        loadText(epiText());
        return false;
    }
    loadText(text);
    return true;
}

bool epiMenu::load(const epiText& name)
{
    epiApplication* app = epiApplicationOf(this);
    return load(app != nullptr ? app->resources() : nullptr, name);
}

void epiMenu::loadText(const epiText& text)
{
    items_.clear();
    accelerators_.clear();
    bar_.menus.clear();
    epiXmlChunk document;
    document.setText(text);
    const epiXmlChunk list = document.child("epi").child("content").child("menulist");
    if (!list.isEmpty())
        readList(list, 0, bar_.menus);
}

void epiMenu::readList(const epiXmlChunk& list, int32_t depth, std::vector<epiMenuItem>& into)
{
    if (depth > kMaxDepth)
        return;
    epiXmlChunkEnumerator enumerator(list);
    enumerator.setName("item");
    epiXmlChunk item;
    while (enumerator.next(&item, nullptr))
    {
        epiMenuItem entry;
        entry.text = item.child("text").rawText();
        entry.shown = entry.text;
        if (depth == 0)
        {
            readList(item.child("menulist"), 1, entry.items);
            into.push_back(std::move(entry));
            continue;
        }
        if (numberOf(item, "isseparator") != 0)
        {
            entry.separator = true;
            into.push_back(std::move(entry));
            continue;
        }
        readCommand(item, entry);
        if (hasElement(item, "menulist"))
            readList(item.child("menulist"), depth + 1, entry.items);
        into.push_back(std::move(entry));
    }
}

void epiMenu::readCommand(const epiXmlChunk& item, epiMenuItem& entry)
{
    // Codes are read as written: "Cut " keeps its blank, which a trimmed text would lose.
    entry.code = item.child("name").rawText().toCode();
    entry.id = int32_t(items_.size()) + kFirstId;
    items_.push_back(Entry{entry.id, entry.code});

    const epiXmlChunk shortcut = item.child("shortcut");
    if (shortcut.isEmpty())
        return;
    uint32_t key = 0;
    if (hasElement(shortcut, "ascii"))
        key = uint32_t(numberOf(shortcut, "ascii")) & 0xFFFF;
    else
    {
        const epiText character = shortcut.child("char").rawText();
        key = character.isEmpty() ? 0 : uint8_t(character[0]);
    }
    if (key >= 'a' && key <= 'z')
        key -= 'a' - 'A';
    if (key == 0)
        return;

    // Modifiers sit in the shortcut; a file that puts them beside it in the item is read too.
    epiXmlChunk modifiers = shortcut.child("modifiers");
    if (modifiers.isEmpty())
        modifiers = item.child("modifiers");
    epiAccelerator accelerator{uint8_t(kAccelVirtualKey | kAccelControl), uint16_t(key), entry.id};
    entry.shown.appendChars("\tCtrl+");
    if (!modifiers.isEmpty() && numberOf(modifiers, "shift") != 0)
    {
        accelerator.flags |= kAccelShift;
        entry.shown.appendChars("Shift+");
    }
    if (!modifiers.isEmpty() && numberOf(modifiers, "option") != 0)
    {
        accelerator.flags |= kAccelAlt;
        entry.shown.appendChars("Alt+");
    }
    entry.shown.appendChar(char(key));
    accelerators_.push_back(accelerator);
}

bool epiMenu::codeOfId(int32_t id, uint32_t* code) const
{
    // Ids are handed out in order from kFirstId, so the id is the index.
    const int64_t index = int64_t(id) - kFirstId;
    if (index < 0 || index >= int64_t(items_.size()))
        return false;
    if (code != nullptr)
        *code = items_[size_t(index)].code;
    return true;
}

intptr_t epiMenu::handleCommand(int32_t id)
{
    uint32_t code = 0;
    epiApplication* app = epiApplicationOf(this);
    if (!codeOfId(id, &code) || app == nullptr)
        return 0;
    if (epiWindowManager* manager = app->windowManager())
        return manager->queryFlag(intptr_t(code));
    return app->handleCommandCode(code);
}
