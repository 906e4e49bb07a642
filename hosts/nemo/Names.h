// Nemo's names for the parts of the interface that the family shares.
#pragma once

#include <glib-object.h>

#define FM(name) nemo_##name
#define FM_FILE_INFO NEMO_FILE_INFO
#define FM_MENU_PROVIDER NEMO_MENU_PROVIDER
#define FM_TYPE(name) NEMO_TYPE_##name
#define FM_OPERATION(name) NEMO_OPERATION_##name

#include <gtk/gtk.h>
G_BEGIN_DECLS
#include <libnemo-extension/nemo-column-provider.h>
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-info-provider.h>
#include <libnemo-extension/nemo-location-widget-provider.h>
#include <libnemo-extension/nemo-menu-item.h>
#include <libnemo-extension/nemo-menu-provider.h>
#include <libnemo-extension/nemo-menu.h>
#include <libnemo-extension/nemo-name-and-desc-provider.h>
#include <libnemo-extension/nemo-property-page-provider.h>
G_END_DECLS

namespace keldane {

using FmMenu = NemoMenu;
using FmMenuItem = NemoMenuItem;
using FmFileInfo = NemoFileInfo;
using FmInfoProvider = NemoInfoProvider;
using FmInfoProviderIface = NemoInfoProviderIface;
using FmPropertyPageProvider = NemoPropertyPageProvider;
using FmPropertyPageProviderIface = NemoPropertyPageProviderIface;
using FmLocationWidgetProvider = NemoLocationWidgetProvider;
using FmLocationWidgetProviderIface = NemoLocationWidgetProviderIface;
using FmColumnProvider = NemoColumnProvider;
using FmColumnProviderIface = NemoColumnProviderIface;
using FmOperationResult = NemoOperationResult;
using FmOperationHandle = NemoOperationHandle;

}  // namespace keldane
