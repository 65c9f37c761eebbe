#pragma once

#include "epi/epiText.h"

#include <vector>

/**
 * The platform's own dialogs. Each runs GTK's loop until it is answered and pumps no framework
 * timer, so nothing re-enters the code that opened it. Paths are UTF-8 file names.
 */
namespace epiGtk
{

/** One existing file. @return false when cancelled */
bool askOpen(const epiText& title, epiText& path);

/** A file to write; `proposed` is the name shown at first. @return false when cancelled */
bool askSave(const epiText& title, const epiText& proposed, epiText& path);

/** Any number of existing files. @return false when cancelled or none chosen */
bool askOpenMany(const epiText& title, std::vector<epiText>& paths);

/** One folder. @return false when cancelled */
bool askFolder(const epiText& title, epiText& path);

/** A message with a title and an OK button. */
void messageBox(const epiText& title, const epiText& text);

} // namespace epiGtk
