// kv3 menu show: loads a menu through the framework's menu reader and prints the bar.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "app/kv3/ResourceArgs.h"
#include "epi/epiResources.h"
#include "epi/ui/epiMenu.h"

#include <iostream>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 menu show [--json] (--pack PACK | --folder DIR) NAME\n"
    "\n"
    "show  loads the menu NAME, a file name below menus/ (bar.xml) or the code inside the\n"
    "      file, and prints each menu of the bar and, indented below it, its items: the\n"
    "      command id, the code in quotes and the text as shown with its shortcut; a\n"
    "      separator prints as ----. Line ends and tabs inside texts print as \\n and \\t.\n"
    "      --json prints {\"name\", \"menus\": [{\"text\", \"items\": [{\"text\", \"shown\",\n"
    "      \"code\", \"id\", \"separator\", \"items\"}]}]}.\n";

std::string escaped(const std::string& text)
{
    return kv3cli::escapedText(text, false);
}

void printItems(const std::vector<epiMenuItem>& items, int depth)
{
    const std::string indent(size_t(depth) * 2, ' ');
    for (const epiMenuItem& item : items)
    {
        if (item.separator)
            std::cout << indent << "----\n";
        else
            std::cout << indent << item.id << " '" << escaped(kv3cli::codeText(item.code)) << "' "
                      << escaped(item.shown) << '\n';
        printItems(item.items, depth + 1);
    }
}

void writeItems(kv3cli::JsonWriter& w, const std::vector<epiMenuItem>& items)
{
    w.beginArray();
    for (const epiMenuItem& item : items)
    {
        w.beginObject().key("text").value(std::string_view(item.text));
        w.key("shown").value(std::string_view(item.shown));
        w.key("code").value(kv3cli::codeText(item.code));
        w.key("id").value(item.id).key("separator").value(item.separator);
        if (!item.items.empty())
        {
            w.key("items");
            writeItems(w, item.items);
        }
        w.endObject();
    }
    w.endArray();
}

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (const std::optional<int> done =
            kv3cli::parseResourceCommand(argv, "menu", args, {}, {"json"}, {"show"}, {1}))
        return *done;
    const std::vector<std::string>& words = args.positional();

    epiResources resources;
    if (const int status = kv3cli::openResourceMedium(args, "menu", resources); status != kv3cli::kOk)
        return status;
    epiText name;
    if (!kv3cli::findResourceByWord(resources, epiCode("menu"), words[1], name))
        return kv3cli::fail("no menu '" + words[1] + "': neither a file below menus/ nor a menu's code");
    epiMenu menu;
    if (!menu.load(&resources, name))
        return kv3cli::fail("cannot read the menu '" + std::string(name) + "'");

    const std::vector<epiMenuItem>& menus = menu.barRef()->menus;
    if (args.flag("json"))
    {
        kv3cli::JsonWriter w;
        w.beginObject().key("name").value(std::string_view(name)).key("menus").beginArray();
        for (const epiMenuItem& top : menus)
        {
            w.beginObject().key("text").value(std::string_view(top.text)).key("items");
            writeItems(w, top.items);
            w.endObject();
        }
        w.endArray().endObject();
        std::cout << w.str() << '\n';
        return kv3cli::kOk;
    }
    for (const epiMenuItem& top : menus)
    {
        std::cout << escaped(top.text) << '\n';
        printItems(top.items, 1);
    }
    return kv3cli::kOk;
}

kv3cli::Register reg{kv3cli::Command{"menu", "show a menu bar as the program loads it", kUsage, run}};

} // namespace
