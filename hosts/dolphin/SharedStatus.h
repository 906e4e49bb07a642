// The status of the files that Dolphin shows, for all of its views.
#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>
#include <map>
#include <optional>
#include <string>

#include "hosts/core/status/StatusOptions.h"
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
  const keldane::StatusOptions& options() const { return options_; }
  /// What is known of a file; nothing for what is not this computer's, is in a trash folder, or is not known.
  std::optional<keldane::FileStatus> statusOf(const QUrl& url);
  /// The path of a file of which the daemon may know; nothing for every other one.
  static std::optional<std::string> pathOf(const QUrl& url);

  /// A view shows a folder, or has left it. Each `hold` has its `release`.
  void hold(const std::string& folder);
  void release(const std::string& folder);

  /// A person gave the daemon a command for these paths.
  Q_INVOKABLE void commandWasGiven(const QStringList& paths);

 Q_SIGNALS:
  /// Something else is to be shown for these files.
  void changed(const QStringList& paths);
  /// The person wants other things to be shown than before.
  void optionsChanged();

 protected:
  void timerEvent(QTimerEvent* event) override;

 private:
  SharedStatus();
  Q_INVOKABLE void tell(const QStringList& paths);

  keldane::StatusService service_;
  keldane::StatusOptions options_;
  std::map<std::string, int> held_;  // how often
  int timer_ = 0;
};
