// The page "Backup" in the properties of a file, for the GTK 3 file managers.
#pragma once

#include <gtk/gtk.h>

#include <string>
#include <vector>

namespace keldane {

const char* pageTitle();

/// Makes the page for a selection. It shows the status, the reason, dates and stored versions, and has
/// buttons to back up and to restore. It asks the daemon without waiting for it, and again every few seconds
/// while it is visible. The result is a floating reference. It is null unless the selection is one file or
/// folder that the backup may know.
GtkWidget* makeBackupPage(const std::vector<GFile*>& files);

}  // namespace keldane
