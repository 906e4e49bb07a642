#include "clients/preferences/worker/tree/TreeFeed.h"

#include <algorithm>

#include "platform/runloop/RunLoop.h"

namespace keldane {

namespace {

// The most rows sent to the window at once, so that it can serve its user in between.
constexpr std::size_t kMostRows = 100;

template <class Row>
std::vector<Row> takeFrom(std::vector<Row>& rows) {
  const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(rows.size(), kMostRows));
  std::vector<Row> taken(std::make_move_iterator(rows.begin()), std::make_move_iterator(end));
  rows.erase(rows.begin(), end);
  return taken;
}

}  // namespace

TreeFeed::~TreeFeed() { RunLoop::current().cancel(this); }

void TreeFeed::setDaemon(const std::shared_ptr<KeldaneProxy>& daemon) {
  tree_.setDaemon(daemon);
  hasDaemon_ = daemon != nullptr;
  if (!daemon) {
    toRefresh_.clear();
  }
}

void TreeFeed::open(const std::string& path) {
  toRefresh_.clear();
  tree_.open(path);
  sendTop(true);
  if (kind_ == TreeKind::restore) {
    deliver_(Selection{});
  }
}

void TreeFeed::showPast(NodeTree::Past past) {
  tree_.setPast(std::move(past));
  if (!tree_.topPath().empty()) {
    open(std::string(tree_.topPath()));
  }
}

void TreeFeed::sendTop(bool fresh) {
  if (std::optional<NodeRow> row = tree_.top()) {
    deliver_(TopRow{std::move(*row), fresh, kind_});
  }
}

void TreeFeed::send(FolderChange change) {
  do {
    FolderChange part{change.folder, takeFrom(change.added), takeFrom(change.changed),
                      takeFrom(change.removed), kind_};
    deliver_(std::move(part));
  } while (!change.added.empty() || !change.changed.empty() || !change.removed.empty());
}

void TreeFeed::sendRows(std::vector<NodeRow> rows) {
  FolderChange change;
  change.changed = std::move(rows);
  send(std::move(change));
}

std::optional<NodeRow> TreeFeed::reread(const std::string& path) {
  std::vector<NodeRow> rows = tree_.reread(path);
  std::optional<NodeRow> own =
      rows.empty() || rows.front().path != path ? std::nullopt : std::optional(rows.front());
  sendRows(std::move(rows));
  return own;
}

void TreeFeed::select(const std::string& path, bool selected) {
  sendRows(tree_.select(path, selected));
  deliver_(Selection{tree_.selectedPaths()});
}

// Folders are read one at a time, so that the user's requests come in between.
void TreeFeed::refresh() {
  if (tree_.topPath().empty() || !hasDaemon_) {
    return;
  }
  if (tree_.needsOpening()) {
    open(std::string(tree_.topPath()));
    return;
  }
  if (tree_.isPast()) {
    return;  // the past does not change
  }
  const bool underWay = !toRefresh_.empty();
  toRefresh_ = tree_.openFolders();
  std::reverse(toRefresh_.begin(), toRefresh_.end());
  sendTop(false);
  if (!underWay && !toRefresh_.empty()) {
    RunLoop::current().perform([this] { refreshNextFolder(); }, this);
  }
}

void TreeFeed::refreshNextFolder() {
  if (toRefresh_.empty()) {
    return;
  }
  const std::string folder = std::move(toRefresh_.back());
  toRefresh_.pop_back();
  send(tree_.refresh(folder));
  if (!toRefresh_.empty()) {
    RunLoop::current().perform([this] { refreshNextFolder(); }, this);
  }
}

}  // namespace keldane
