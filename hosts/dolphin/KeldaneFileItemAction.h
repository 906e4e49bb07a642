// The Dolphin extension.
#pragma once

#include <KAbstractFileItemActionPlugin>

/// Dolphin asks for actions once, when it is about to show a menu, and a menu can be filled while it is open:
/// in place of one that does not come in time stands an entry that says so, which becomes the menu once it is
/// there. Dolphin's thread; owned by Dolphin.
class KeldaneFileItemAction : public KAbstractFileItemActionPlugin {
  Q_OBJECT

 public:
  KeldaneFileItemAction(QObject* parent, const QVariantList& arguments);
  QList<QAction*> actions(const KFileItemListProperties& selection, QWidget* parent) override;
};
