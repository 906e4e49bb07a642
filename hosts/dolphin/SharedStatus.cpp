#include "SharedStatus.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTimerEvent>
#include <QVariant>

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
  options_ = keldane::readStatusOptions();
  service_.setListener([this](const std::vector<std::string>& paths) {
    QStringList list;
    for (const std::string& path : paths) {
      list.append(QString::fromStdString(path));
    }
    QMetaObject::invokeMethod(this, "tell", Qt::QueuedConnection, Q_ARG(QStringList, list));
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

void SharedStatus::hold(const std::string& folder) {
  ++held_[folder];
  if (timer_ == 0) {
    timer_ = startTimer(kBeat);
  }
}

void SharedStatus::release(const std::string& folder) {
  const auto found = held_.find(folder);
  if (found != held_.end() && --found->second == 0) {
    held_.erase(found);
    service_.close(folder);
  }
}

void SharedStatus::commandWasGiven(const QStringList& paths) {
  std::vector<std::string> list;
  for (const QString& path : paths) {
    list.push_back(path.toStdString());
  }
  service_.commandWasGiven(list);
}

void SharedStatus::tell(const QStringList& paths) { Q_EMIT changed(paths); }

void SharedStatus::timerEvent(QTimerEvent* /*event*/) {
  const keldane::StatusOptions options = keldane::readStatusOptions();
  if (!(options == options_)) {
    options_ = options;
    service_.tellAll();
    Q_EMIT optionsChanged();
  }
  service_.lookAfter();
  if (held_.empty()) {
    killTimer(timer_);
    timer_ = 0;
  }
}
