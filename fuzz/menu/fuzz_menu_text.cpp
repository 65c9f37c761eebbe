// Any bytes read as a menu give a bar whose commands carry the ids 10000, 10001, ... in order,
// whose shortcuts name existing commands, and whose ids lead back to their codes and no further.

#include "epi/ui/epiMenu.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace
{

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// Walks the bar in file order, checking each command's id against the next one expected.
void walk(const epiMenu& menu, const std::vector<epiMenuItem>& items, int32_t& next, int depth)
{
    require(depth <= epiMenu::kMaxDepth + 1);
    for (const epiMenuItem& item : items)
    {
        if (depth > 0 && !item.separator)
        {
            require(item.id == next++);
            uint32_t code = 0;
            require(menu.codeOfId(item.id, &code) && code == item.code);
            require(item.shown.compare(0, item.text.size(), item.text) == 0);
        }
        else
            require(item.id == 0);
        require(!item.separator || item.items.empty());
        walk(menu, item.items, next, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    epiMenu menu;
    menu.loadText(epiText(std::string(reinterpret_cast<const char*>(data), size)));
    int32_t next = epiMenu::kFirstId;
    walk(menu, menu.barRef()->menus, next, 0);
    require(size_t(next - epiMenu::kFirstId) == menu.items().size());
    for (const epiAccelerator& accelerator : *menu.acceleratorsRef())
    {
        require(menu.codeOfId(accelerator.id, nullptr));
        require((accelerator.flags & 9) == 9 && accelerator.key != 0);
        require(accelerator.key < 'a' || accelerator.key > 'z');
    }
    require(!menu.codeOfId(next, nullptr));
    return 0;
}
