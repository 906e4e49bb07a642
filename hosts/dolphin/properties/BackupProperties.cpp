#include "hosts/dolphin/properties/BackupProperties.h"

#include <KFileItem>
#include <KPluginFactory>

#include "hosts/dolphin/SharedStatus.h"
#include "hosts/dolphin/properties/BackupPage.h"
#include "platform/text/Translation.h"

K_PLUGIN_CLASS_WITH_JSON(BackupProperties, "properties.json")

// In Frameworks 5 the base class takes the dialog as KPropertiesDialog.
BackupProperties::BackupProperties(QObject* parent, const QVariantList& /*arguments*/)
    : KPropertiesDialogPlugin(qobject_cast<KPropertiesDialog*>(parent)) {
  auto* dialog = qobject_cast<KPropertiesDialog*>(parent);
  if (dialog == nullptr || dialog->items().count() != 1) {
    return;
  }
  if (const auto path = SharedStatus::pathOf(dialog->items().first().url())) {
    dialog->addPage(new BackupPage(*path), QString::fromUtf8(keldane::tr("Backup")));
  }
}

#include "BackupProperties.moc"
