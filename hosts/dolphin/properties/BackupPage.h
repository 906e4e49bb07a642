// The contents of the page "Backup".
#pragma once

#include <QTimer>
#include <QWidget>
#include <functional>
#include <string>

#include "hosts/core/status/FileDetails.h"
#include "hosts/core/status/StatusService.h"

class QFormLayout;
class QLabel;
class QPushButton;
class QTreeWidget;

/// The page asks the daemon without waiting for it, and again every few seconds while it is visible.
class BackupPage : public QWidget {
  Q_OBJECT

 public:
  explicit BackupPage(std::string path, QWidget* parent = nullptr);

 private:
  void makeButtons();
  void refresh();
  void show(const keldane::FileDetails& details);
  void showRows();
  void showVersions();
  void enableButtons();
  std::uint32_t chosenVersion() const;
  void tell(const std::string& sentence);
  void backUp();
  void restoreElsewhere();
  void restoreTo(const QString& folder);
  void lookAtRestore();
  /// Runs `work` on the service's thread and hands its result to `then` on the window's thread, if this page
  /// still exists.
  template <class Work, class Then>
  void ask(Work work, Then then);

  const std::string path_;
  QFormLayout* rows_;
  QTreeWidget* versions_;
  QLabel* message_;
  QPushButton *backUp_ = nullptr, *restore_ = nullptr, *restoreTo_ = nullptr;
  QTimer timer_;
  keldane::FileDetails details_;
  bool isAsking_ = false, hasAnswer_ = false;
  std::uint32_t job_ = 0;  // the restore that is under way; 0 for none
};
