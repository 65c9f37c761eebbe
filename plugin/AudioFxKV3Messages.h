#pragma once

#include "epi/epiText.h"

/**
 * Where the plug-in host's messages for the user go: the window shows them in a message box, `kv3`
 * prints them. Each call is one message with its title.
 */
class AudioFxKV3MessageSink
{
public:
    virtual ~AudioFxKV3MessageSink() = default;

    // [ui thread]
    virtual void showMessage(const epiText& title, const epiText& text) = 0;
};

/** The upward call of the effect manager; the engine's Manager answers it. */
class AudioFxKV3ManagerDelegate
{
public:
    // [ui thread]
    virtual void pluginChanged() = 0;

protected:
    ~AudioFxKV3ManagerDelegate() = default;
};
