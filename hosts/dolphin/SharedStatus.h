// The status of the files that Dolphin shows, for all of its views.
#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>
#include <map>
#include <optional>
#include <string>

#include "config/FileManagerOptions.h"
#include "hosts/core/status/ChangeQueue.h"
#include "hosts/core/status/StatusService.h"

/// One a library, on the window's thread, and never taken down: the service's thread may be stuck when
/// Dolphin ends.
class SharedStatus : public QObject {
  Q_OBJECT

 public:
  /// The application's property that holds this object, for the other extensions.
  static constexpr char kProperty[] = "keldaneStatus";

  /// Made with the first call.
  static SharedStatus& shared();
  keldane::StatusService& service() { return service_; }
  const keldane::FileManagerOptions& options() const { return options_; }
  /// What is known of a file; nothing for what is not this computer's, is in a trash folder, or is not known.
  std::optional<keldane::FileStatus> statusOf(const QUrl& url);
  /// The path of a file of which the daemon may know; nothing for every other one.
  static std::optional<std::string> pathOf(const QUrl& url);

  /// A view shows a folder, or has left it. Each `hold` has its `release`.
  void hold(const std::string& folder);
  void release(const std::string& folder);

  /// A person gave the daemon a command for these paths.
  Q_INVOKABLE void commandWasGiven(const QStringList& paths);
  /// The entry that opens the restore window for a file or a folder: its text and the program's option.
  /// Empty where the person wants none, nothing can be restored, or nothing is known yet.
  Q_INVOKABLE QStringList restoreEntry(const QString& path, bool isFolder);

 Q_SIGNALS:
  /// Something else is to be shown for these files.
  void changed(const QStringList& paths);
  /// The person wants other things to be shown than before.
  void optionsChanged();

 protected:
  void timerEvent(QTimerEvent* event) override;

 private:
  SharedStatus();
  /// What is asked about is what is held, and the folders themselves.
  void closeOthers();
  Q_INVOKABLE void beginToTell();
  void tellSome();

  keldane::ChangeQueue changes_;
  keldane::StatusService service_;
  keldane::FileManagerOptions options_;
  std::map<std::string, int> held_;  // how often
  int timer_ = 0, beat_ = 0;
};
