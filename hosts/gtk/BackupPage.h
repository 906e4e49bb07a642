// The page "Backup" in the properties of a file, for the GTK 3 file managers.
#pragma once

#include <gtk/gtk.h>

#include <string>
#include <vector>

namespace keldane {

const char* pageTitle();

/// The page for a selection: status, why, dates, stored versions, and buttons to back up and to restore. It
/// asks the daemon without waiting for it and again every few seconds while it can be seen. A floating
/// reference; null where the selection is not one file or folder that the backup may know.
GtkWidget* makeBackupPage(const std::vector<GFile*>& files);

}  // namespace keldane
