#pragma once

#include "epi/epiObject.h"
#include "epi/epiText.h"

#include <cstdint>
#include <vector>

class epiResources;
class epiXmlChunk;

/** One entry of a menu: a top menu of the bar, a command (which may open a submenu) or a separator. */
struct epiMenuItem
{
    /** The text as the file writes it, blanks and line ends kept. */
    epiText text;
    /** The text as shown: for a command with a shortcut, a tab and the keys follow, "\tCtrl+O". */
    epiText shown;
    /** The command's four-character code, 0 for none. */
    uint32_t code = 0;
    /** The command's id (10000 and up); 0 for top menus and separators. */
    int32_t id = 0;
    bool separator = false;
    /** The submenu, empty when the entry opens none. */
    std::vector<epiMenuItem> items;
};

/** A keyboard shortcut of a command: flags (epiMenu::kAccel...), the key (a capital) and the id. */
struct epiAccelerator
{
    uint8_t flags = 0;
    uint16_t key = 0;
    int32_t id = 0;
};

/** The menu bar as a model: its top menus. The platform builds its own menu from it. */
struct epiMenuBar
{
    std::vector<epiMenuItem> menus;
};

/**
 * The program's menu bar and its shortcuts, read from a menu resource:
 *
 *     <epi><content><menulist>
 *       <item><text>File</text><menulist>
 *         <item><text>Open...</text><name>Open</name>
 *               <shortcut><char>o</char><modifiers><shift>1</shift></modifiers></shortcut></item>
 *         <item><isseparator>1</isseparator></item>
 *       </menulist></item>
 *     </menulist></content></epi>
 *
 * Items of the outer list are the bar's menus; every command below takes the next id from 10000
 * up, in file order, and remembers its code. Every shortcut includes Ctrl.
 */
class epiMenu : public epiApplicationObject
{
public:
    /** Accelerator flags: a virtual key, and the modifiers it needs. */
    static constexpr uint8_t kAccelVirtualKey = 1;
    static constexpr uint8_t kAccelShift = 4;
    static constexpr uint8_t kAccelControl = 8;
    static constexpr uint8_t kAccelAlt = 16;
    /** The first command id. */
    static constexpr int32_t kFirstId = 10000;
    /** Menus nested deeper than this are left out, so that no file can exhaust the stack. */
    static constexpr int32_t kMaxDepth = 16;

    /** A command: its id and its code. */
    struct Entry
    {
        int32_t id;
        uint32_t code;
    };

    epiMenu() = default;
    ~epiMenu() override = default;

    /** The bar as last loaded. */
    virtual epiMenuBar* barRef() { return &bar_; }
    /** The shortcuts as last loaded, in file order. */
    virtual std::vector<epiAccelerator>* acceleratorsRef() { return &accelerators_; }

    /**
     * Reads the menu resource `name` (kind 'menu') from `resources` and builds the bar.
     * @return false when the resource is missing: the bar is then empty
     */
    virtual bool load(epiResources* resources, const epiText& name);
    /** load() from the application's resources. */
    virtual bool load(const epiText& name);

    /** Builds the bar from menu text; text that isn't a menu gives an empty bar. */
    void loadText(const epiText& text);

    /** The commands in id order. */
    const std::vector<Entry>& items() const { return items_; }

    /** The code of the command `id`. @return false for an id that no command has */
    bool codeOfId(int32_t id, uint32_t* code) const;

    /**
     * The command chosen by its id goes down the road of a command: the window manager's
     * queryFlag() offers its code to the top window, the main window when that is another, then
     * to the application's handleCommandCode(). Without a window manager the application has it.
     * @return the answer of the first that took it; 0 when none did or the id is unknown
     */
    intptr_t handleCommand(int32_t id);

private:
    void readList(const epiXmlChunk& list, int32_t depth, std::vector<epiMenuItem>& into);
    void readCommand(const epiXmlChunk& item, epiMenuItem& entry);

    epiMenuBar bar_;
    std::vector<epiAccelerator> accelerators_;
    std::vector<Entry> items_;
};
