// The entries of the host's own, in the file managers of the GTK world.
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>
#include <vector>

#include "hosts/core/status/RestoreEntry.h"

namespace keldane {

/// An entry that opens the restore window.
struct RestoreOffer {
  const char* name;           ///< of the menu item
  const RestoreEntry* entry;  ///< what it says and does
  std::string path;
};

/// For the older versions of a single file that is known to have some. Nothing where the person wants no such
/// entries, or the restore window is not installed.
std::optional<RestoreOffer> previousVersionOffer(const std::vector<GFile*>& files);
/// For what was deleted in a folder, on the folder's background; nothing likewise, and where nothing can be
/// backed up.
std::optional<RestoreOffer> missingFilesOffer(GFile* folder);

/// Opens the window when the item, whose signal "activate" has no further arguments, is chosen.
void connectOffer(gpointer item, const RestoreOffer& offer);

}  // namespace keldane
