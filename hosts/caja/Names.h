// Caja's names for the parts of the interface that the family shares.
#pragma once

#include <glib-object.h>

#define FM(name) caja_##name
#define FM_FILE_INFO CAJA_FILE_INFO
#define FM_MENU_PROVIDER CAJA_MENU_PROVIDER
#define FM_TYPE(name) CAJA_TYPE_##name
#define FM_OPERATION(name) CAJA_OPERATION_##name

#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <libcaja-extension/caja-column-provider.h>
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-location-widget-provider.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <libcaja-extension/caja-menu.h>
#include <libcaja-extension/caja-property-page-provider.h>
G_END_DECLS

namespace keldane {

using FmMenu = CajaMenu;
using FmMenuItem = CajaMenuItem;
using FmFileInfo = CajaFileInfo;
using FmInfoProvider = CajaInfoProvider;
using FmInfoProviderIface = CajaInfoProviderIface;
using FmPropertyPageProvider = CajaPropertyPageProvider;
using FmPropertyPageProviderIface = CajaPropertyPageProviderIface;
using FmLocationWidgetProvider = CajaLocationWidgetProvider;
using FmLocationWidgetProviderIface = CajaLocationWidgetProviderIface;
using FmColumnProvider = CajaColumnProvider;
using FmColumnProviderIface = CajaColumnProviderIface;
using FmOperationResult = CajaOperationResult;
using FmOperationHandle = CajaOperationHandle;

}  // namespace keldane
