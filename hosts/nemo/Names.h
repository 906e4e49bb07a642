// Nemo's names for what the family has in common.
#pragma once

#include <glib-object.h>

#define FM(name) nemo_##name
#define FM_FILE_INFO NEMO_FILE_INFO
#define FM_MENU_PROVIDER NEMO_MENU_PROVIDER

#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-menu-item.h>
#include <libnemo-extension/nemo-menu-provider.h>
#include <libnemo-extension/nemo-menu.h>
#include <libnemo-extension/nemo-name-and-desc-provider.h>
G_END_DECLS

namespace keldane {

using FmMenu = NemoMenu;
using FmMenuItem = NemoMenuItem;

}  // namespace keldane
