// The Dolphin extension for the context menu.
#pragma once

#include <KAbstractFileItemActionPlugin>

/// Dolphin asks for actions once, when it is about to show a menu, but a menu can be filled while it is open.
/// So a submenu that does not come in time is replaced by an entry that says so. This entry becomes the
/// submenu once the answer is there. Used on Dolphin's window thread and owned by Dolphin.
class KeldaneFileItemAction : public KAbstractFileItemActionPlugin {
  Q_OBJECT

 public:
  KeldaneFileItemAction(QObject* parent, const QVariantList& arguments);
  QList<QAction*> actions(const KFileItemListProperties& selection, QWidget* parent) override;
};
