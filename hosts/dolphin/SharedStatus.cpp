#include "SharedStatus.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTimerEvent>
#include <QVariant>
#include <algorithm>
#include <utility>

#include "hosts/core/status/RestoreEntry.h"
#include "platform/files/Path.h"

namespace {

constexpr int kBeat = 5000;  // milliseconds

bool isInTrash(const std::string& path) {
  static const std::string own =
      (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QLatin1String("/Trash"))
          .toStdString();
  return keldane::isAtOrBelow(path, own) || path.find("/.Trash/") != std::string::npos ||
         path.find("/.Trash-") != std::string::npos;
}

}  // namespace

SharedStatus& SharedStatus::shared() {
  static auto* const status = new SharedStatus();
  return *status;
}

SharedStatus::SharedStatus() {
  QCoreApplication::instance()->setProperty(kProperty, QVariant::fromValue<QObject*>(this));
  options_ = keldane::FileManagerOptions::read();
  service_.setListener([this](std::vector<std::string> paths) {
    if (changes_.add(std::move(paths))) {
      QMetaObject::invokeMethod(this, "beginToTell", Qt::QueuedConnection);
    }
  });
}

std::optional<std::string> SharedStatus::pathOf(const QUrl& url) {
  if (!url.isLocalFile()) {
    return std::nullopt;
  }
  const QString path = QDir::cleanPath(url.toLocalFile());
  const std::string text = path.toStdString();
  if (path.contains(QChar::ReplacementCharacter) || isInTrash(text)) {
    return std::nullopt;
  }
  return text;
}

std::optional<keldane::FileStatus> SharedStatus::statusOf(const QUrl& url) {
  const std::optional<std::string> path = pathOf(url);
  return path ? service_.statusOf(*path) : std::nullopt;
}

// The folder's own status is asked for, because the menu on its background needs it at once.
void SharedStatus::hold(const std::string& folder) {
  if (++held_[folder] == 1 && (options_.needStatus() || options_.restoreEntries)) {
    service_.statusOf(folder);
  }
  if (timer_ == 0) {
    timer_ = startTimer(kBeat);
  }
}

void SharedStatus::release(const std::string& folder) {
  const auto found = held_.find(folder);
  if (found != held_.end() && --found->second == 0) {
    held_.erase(found);
    closeOthers();
  }
}

void SharedStatus::closeOthers() {
  for (const keldane::StatusCache::OpenFolder& open : service_.openFolders()) {
    const bool isNeeded = std::any_of(held_.begin(), held_.end(), [&](const auto& held) {
      return open.path == held.first || open.path == keldane::parentPath(held.first);
    });
    if (!isNeeded) {
      service_.close(open.path);
    }
  }
}

void SharedStatus::commandWasGiven(const QStringList& paths) {
  std::vector<std::string> list;
  for (const QString& path : paths) {
    list.push_back(path.toStdString());
  }
  service_.commandWasGiven(list);
}

QStringList SharedStatus::restoreEntry(const QString& path, bool isFolder) {
  const std::optional<keldane::FileStatus> status =
      options_.restoreEntries ? statusOf(QUrl::fromLocalFile(path)) : std::nullopt;
  if (!status) {
    return {};
  }
  const keldane::RestoreEntry* entry =
      isFolder ? keldane::missingFilesEntry(*status) : keldane::previousVersionEntry(*status);
  return entry == nullptr
             ? QStringList()
             : QStringList{QString::fromUtf8(keldane::tr(entry->label)), QString::fromUtf8(entry->option)};
}

void SharedStatus::beginToTell() { beat_ = startTimer(keldane::ChangeQueue::kBeat); }

void SharedStatus::tellSome() {
  const auto some = changes_.take(keldane::ChangeQueue::Work::now());
  if (!some) {
    killTimer(std::exchange(beat_, 0));
    return;
  }
  QStringList paths;
  for (const std::string& path : *some) {
    paths.append(QString::fromStdString(path));
  }
  Q_EMIT changed(paths);
}

void SharedStatus::timerEvent(QTimerEvent* event) {
  if (event->timerId() == beat_) {
    tellSome();
    return;
  }
  const keldane::FileManagerOptions options = keldane::FileManagerOptions::read();
  if (!(options == options_)) {
    options_ = options;
    service_.tellAll();
    Q_EMIT optionsChanged();
  }
  service_.lookAfter();
  closeOthers();
  if (held_.empty()) {
    killTimer(timer_);
    timer_ = 0;
  }
}
