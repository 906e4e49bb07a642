#include "KeldaneFileItemAction.h"

#include <KFileItemListProperties>
#include <KPluginFactory>
#include <QAction>
#include <QCoreApplication>
#include <QIcon>
#include <QMenu>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>
#include <QVariant>
#include <optional>

#include "hosts/core/MenuService.h"
#include "hosts/core/status/RestoreEntry.h"

K_PLUGIN_CLASS_WITH_JSON(KeldaneFileItemAction, "keldane.json")

namespace {

using keldane::MenuItem;
using keldane::MenuService;
using Menu = std::shared_ptr<const keldane::OfferedMenu>;

constexpr char kIconName[] = "keldane";

/// The entry in an open menu that waits for the plug-in's answer.
struct Waiting {
  QPointer<QAction> top;
  std::vector<std::string> paths;
};
Waiting gWaiting;

void fillWaiting();

/// Passes the news of a late menu from the plug-in's thread to the window's thread, on which this object is
/// made.
class LateNews : public QObject {
  Q_OBJECT

 public:
  Q_INVOKABLE void tell() { fillWaiting(); }
};

/// The service is never destroyed, because the plug-in's thread may be stuck when Dolphin ends.
MenuService& menuService() {
  static auto* const service = [] {
    auto* made = new MenuService();
    auto* news = new LateNews();
    made->setLateListener([news] { QMetaObject::invokeMethod(news, "tell", Qt::QueuedConnection); });
    return made;
  }();
  return *service;
}

/// The object that knows the status of files. It lives in the extension for the emblems, which is another
/// library. Null when that extension is not loaded.
QObject* sharedStatus() {
  return qvariant_cast<QObject*>(QCoreApplication::instance()->property("keldaneStatus"));
}

/// Tells the status object of a command, so that the daemon is asked about the files at once.
void tellOfCommand(const std::vector<std::string>& paths) {
  if (QObject* status = sharedStatus()) {
    QStringList list;
    for (const std::string& path : paths) {
      list.append(QString::fromStdString(path));
    }
    QMetaObject::invokeMethod(status, "commandWasGiven", Qt::QueuedConnection, Q_ARG(QStringList, list));
  }
}

/// Ampersands are doubled, because a single one would mark the key that chooses the entry.
QString textFor(const std::string& title) {
  return QString::fromStdString(title).replace(QLatin1Char('&'), QLatin1String("&&"));
}

void addItem(QMenu& submenu, const MenuItem& item, const Menu& menu) {
  if (item.isSeparator()) {
    submenu.addSeparator();
    return;
  }
  QAction* action = submenu.addAction(textFor(item.title));
  action->setEnabled(item.isChoosable() && item.command != 0);
  QObject::connect(action, &QAction::triggered, action, [menu, command = item.command] {
    menuService().choose(*menu, command);
    tellOfCommand(menu->paths);
  });
}

void fill(QAction& top, const MenuItem& item, const Menu& menu, QWidget* parent) {
  top.setText(textFor(item.title));
  auto* submenu = new QMenu(parent);
  QObject::connect(&top, &QObject::destroyed, submenu, &QObject::deleteLater);
  for (const MenuItem& below : item.items) {
    addItem(*submenu, below, menu);
  }
  top.setMenu(submenu);
  top.setEnabled(true);
}

void fillWaiting() {
  const Menu menu = menuService().rememberedMenuFor(gWaiting.paths);
  if (!gWaiting.top || !menu) {
    return;
  }
  QAction& top = *gWaiting.top;
  gWaiting.top = nullptr;
  if (menu->items.empty()) {
    top.setVisible(false);
  } else {
    fill(top, menu->items.front(), menu, qobject_cast<QWidget*>(top.parent()));
  }
}

/// The local paths of the items. Paths that are not UTF-8 are left out. Absent when an item is not in the
/// local file system, or when no path is left.
std::optional<std::vector<std::string>> localPaths(const QList<QUrl>& urls) {
  std::vector<std::string> paths;
  for (const QUrl& url : urls) {
    if (!url.isLocalFile()) {
      return std::nullopt;
    }
    const QString path = url.toLocalFile();
    if (!path.contains(QChar::ReplacementCharacter)) {
      paths.push_back(path.toStdString());
    }
  }
  return paths.empty() ? std::nullopt : std::optional(paths);
}

/// The plug-in's submenu, or an entry in its place when it did not come in time. Null when there is nothing
/// to show.
QAction* makeSubmenu(const std::vector<std::string>& paths, QWidget* parent) {
  menuService().forget();
  const Menu menu = menuService().menuFor(paths);
  if (menu && menu->items.empty()) {
    return nullptr;
  }
  auto* top = new QAction(QIcon::fromTheme(QLatin1String(kIconName)), QString(), parent);
  if (menu) {
    fill(*top, menu->items.front(), menu, parent);
  } else {
    top->setText(textFor(menuService().notRespondingTitle()));
    top->setEnabled(false);
    gWaiting = {top, paths};
  }
  return top;
}

/// The host's own entry beside the submenu. Null when there is nothing to restore. Dolphin does not tell
/// whether a folder was clicked in its parent folder or on its own background.
QAction* makeRestoreEntry(const KFileItemListProperties& selection, QWidget* parent) {
  QObject* status = sharedStatus();
  const QString program = QStandardPaths::findExecutable(QLatin1String(keldane::kRestoreProgram));
  if (status == nullptr || program.isEmpty() || selection.urlList().count() != 1 || !selection.isLocal()) {
    return nullptr;
  }
  const QString path = selection.urlList().first().toLocalFile();
  QStringList entry;
  QMetaObject::invokeMethod(status, "restoreEntry", Q_RETURN_ARG(QStringList, entry), Q_ARG(QString, path),
                            Q_ARG(bool, selection.isDirectory()));
  if (entry.isEmpty()) {
    return nullptr;
  }
  auto* action = new QAction(textFor(entry.first().toStdString()), parent);
  QObject::connect(action, &QAction::triggered, action, [program, option = entry.last(), path] {
    QProcess::startDetached(program, {option, path});
  });
  return action;
}

}  // namespace

KeldaneFileItemAction::KeldaneFileItemAction(QObject* parent, const QVariantList& /*arguments*/)
    : KAbstractFileItemActionPlugin(parent) {}

QList<QAction*> KeldaneFileItemAction::actions(const KFileItemListProperties& selection, QWidget* parent) {
  const std::optional<std::vector<std::string>> paths = localPaths(selection.urlList());
  if (!paths) {
    return {};
  }
  QList<QAction*> actions;
  if (QAction* top = makeSubmenu(*paths, parent)) {
    actions.append(top);
  }
  if (QAction* restore = makeRestoreEntry(selection, parent)) {
    actions.append(restore);
  }
  return actions;
}

// This file has the factory that the macro above declares.
#include "KeldaneFileItemAction.moc"
