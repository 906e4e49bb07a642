// The host's own menu entries in the file managers of the GTK world.
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>
#include <vector>

#include "hosts/core/status/RestoreEntry.h"

namespace keldane {

/// An entry that opens the restore window.
struct RestoreOffer {
  const char* name;           ///< name of the menu item
  const RestoreEntry* entry;  ///< label and action of the item
  std::string path;
};

/// The entry for the older versions of a single file. Absent when no older version is known, when the user
/// has switched such entries off, or when the restore window is not installed.
std::optional<RestoreOffer> previousVersionOffer(const std::vector<GFile*>& files);
/// The entry for the deleted files of a folder, on the folder's background. Absent in the same cases, and
/// where nothing can be backed up.
std::optional<RestoreOffer> missingFilesOffer(GFile* folder);

/// Opens the restore window when the item is chosen. The item's signal "activate" must have no further
/// arguments.
void connectOffer(gpointer item, const RestoreOffer& offer);

}  // namespace keldane
