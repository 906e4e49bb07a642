// The status of the files that Dolphin shows, for all of its views.
#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>
#include <map>
#include <optional>
#include <string>

#include "config/FileManagerOptions.h"
#include "hosts/core/status/StatusService.h"
#include "hosts/core/status/cache/ChangeQueue.h"

/// Each library has one such object, used on the window's thread. It is never destroyed, because the
/// service's thread may be stuck when Dolphin ends.
class SharedStatus : public QObject {
  Q_OBJECT

 public:
  /// The application's property that holds this object, for the other extensions.
  static constexpr char kProperty[] = "keldaneStatus";

  /// The object is made with the first call.
  static SharedStatus& shared();
  keldane::StatusService& service() { return service_; }
  const keldane::FileManagerOptions& options() const { return options_; }
  /// The status of a file. Absent for a file that is not on this computer, is in a trash folder, or is not
  /// known yet.
  std::optional<keldane::FileStatus> statusOf(const QUrl& url);
  /// The path of a file that the daemon may know; absent for any other file.
  static std::optional<std::string> pathOf(const QUrl& url);

  /// Tell that a view shows a folder, or has left it. Each `hold` needs one `release`.
  void hold(const std::string& folder);
  void release(const std::string& folder);

  /// Tells that the user gave the daemon a command for these paths.
  Q_INVOKABLE void commandWasGiven(const QStringList& paths);
  /// The menu entry that opens the restore window for a file or a folder: its text and the program's option.
  /// Empty when the user has switched such entries off, when nothing can be restored, or when nothing is
  /// known yet.
  Q_INVOKABLE QStringList restoreEntry(const QString& path, bool isFolder);

 Q_SIGNALS:
  /// The emblems of these files may have changed.
  void changed(const QStringList& paths);
  /// The user has changed the options.
  void optionsChanged();

 protected:
  void timerEvent(QTimerEvent* event) override;

 private:
  SharedStatus();
  /// Closes the folders that are neither held nor the parent of a held folder.
  void closeOthers();
  Q_INVOKABLE void beginToTell();
  void tellSome();

  keldane::ChangeQueue changes_;
  keldane::StatusService service_;
  keldane::FileManagerOptions options_;
  std::map<std::string, int> held_;  // number of holds by folder
  int timer_ = 0, beat_ = 0;
};
