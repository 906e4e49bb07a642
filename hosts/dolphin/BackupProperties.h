// The page "Backup" in Dolphin's properties.
#pragma once

#include <KPropertiesDialog>
// Frameworks 5 has it in the header of the dialog.
#if __has_include(<KPropertiesDialogPlugin>)
#include <KPropertiesDialogPlugin>
#endif
#include <QVariantList>

/// Adds the page to the dialog that it is made for, when that is about one file or folder of this computer.
class BackupProperties : public KPropertiesDialogPlugin {
  Q_OBJECT

 public:
  BackupProperties(QObject* parent, const QVariantList& arguments);
};
