#include "OverlayIcons.h"

#include <algorithm>
#include <utility>

#include "SharedStatus.h"
#include "platform/files/Path.h"

namespace {

/// A view may show several folders at once, as a tree. It does not tell which folders it has left.
constexpr std::size_t kMostFolders = 8;
constexpr int kMostUnanswered = 2000;

QStringList iconsFor(const QUrl& url) {
  SharedStatus& status = SharedStatus::shared();
  if (!status.options().emblems) {
    return {};
  }
  const std::optional<keldane::FileStatus> known = status.statusOf(url);
  return known && known->emblem != keldane::Emblem::none
             ? QStringList(QString::fromStdString(keldane::iconNameOf(known->emblem)))
             : QStringList();
}

}  // namespace

OverlayIcons::OverlayIcons(QObject* parent) : KOverlayIconPlugin(parent) {
  connect(&SharedStatus::shared(), &SharedStatus::changed, this, [this](const QStringList& paths) {
    for (const QString& path : paths) {
      const QUrl url = QUrl::fromLocalFile(path);
      Q_EMIT overlaysChanged(url, iconsFor(url));
    }
  });
  connect(&SharedStatus::shared(), &SharedStatus::optionsChanged, this, [this] {
    for (const QUrl& url : std::exchange(unanswered_, {})) {
      Q_EMIT overlaysChanged(url, getOverlays(url));
    }
  });
}

OverlayIcons::~OverlayIcons() {
  for (const std::string& folder : folders_) {
    SharedStatus::shared().release(folder);
  }
}

QStringList OverlayIcons::getOverlays(const QUrl& url) {
  if (const std::optional<std::string> path = SharedStatus::pathOf(url)) {
    hold(std::string(keldane::parentPath(*path)));
  }
  if (!SharedStatus::shared().options().emblems && unanswered_.size() < kMostUnanswered) {
    unanswered_.insert(url);
  }
  return iconsFor(url);
}

void OverlayIcons::hold(const std::string& folder) {
  const auto known = std::find(folders_.begin(), folders_.end(), folder);
  if (known == folders_.begin() && known != folders_.end()) {
    return;
  }
  if (known != folders_.end()) {
    folders_.erase(known);
  } else {
    SharedStatus::shared().hold(folder);
  }
  folders_.push_front(folder);
  if (folders_.size() > kMostFolders) {
    SharedStatus::shared().release(folders_.back());
    folders_.pop_back();
  }
}
