// Nautilus' names for what the family has in common.
#pragma once

#include <glib-object.h>

#define FM(name) nautilus_##name
#define FM_FILE_INFO NAUTILUS_FILE_INFO
#define FM_MENU_PROVIDER NAUTILUS_MENU_PROVIDER

#include <gio/gio.h>
G_BEGIN_DECLS
#include <nautilus-extension.h>
G_END_DECLS

namespace keldane {

using FmMenu = NautilusMenu;
using FmMenuItem = NautilusMenuItem;

}  // namespace keldane
