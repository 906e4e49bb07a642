// Caja's names for what the family has in common.
#pragma once

#include <glib-object.h>

#define FM(name) caja_##name
#define FM_FILE_INFO CAJA_FILE_INFO
#define FM_MENU_PROVIDER CAJA_MENU_PROVIDER

#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <libcaja-extension/caja-menu.h>
G_END_DECLS

namespace keldane {

using FmMenu = CajaMenu;
using FmMenuItem = CajaMenuItem;

}  // namespace keldane
