// Nautilus' names for the parts of the interface that the family shares.
#pragma once

#include <glib-object.h>

#define FM(name) nautilus_##name
#define FM_FILE_INFO NAUTILUS_FILE_INFO
#define FM_MENU_PROVIDER NAUTILUS_MENU_PROVIDER
#define FM_TYPE(name) NAUTILUS_TYPE_##name
#define FM_OPERATION(name) NAUTILUS_OPERATION_##name

#include <gio/gio.h>
G_BEGIN_DECLS
#include <nautilus-extension.h>
G_END_DECLS

namespace keldane {

using FmMenu = NautilusMenu;
using FmMenuItem = NautilusMenuItem;
using FmFileInfo = NautilusFileInfo;
using FmInfoProvider = NautilusInfoProvider;
using FmInfoProviderIface = NautilusInfoProviderInterface;
using FmColumnProvider = NautilusColumnProvider;
using FmColumnProviderIface = NautilusColumnProviderInterface;
using FmOperationResult = NautilusOperationResult;
using FmOperationHandle = NautilusOperationHandle;

}  // namespace keldane
