// The page "Backup" in Dolphin's properties.
#pragma once

#include <KPropertiesDialog>
// In Frameworks 5 the base class is declared in the header of the dialog.
#if __has_include(<KPropertiesDialogPlugin>)
#include <KPropertiesDialogPlugin>
#endif
#include <QVariantList>

/// Adds the page to the dialog that it is made for, if the dialog shows one file or folder of this computer.
class BackupProperties : public KPropertiesDialogPlugin {
  Q_OBJECT

 public:
  BackupProperties(QObject* parent, const QVariantList& arguments);
};
