#include "clients/preferences/window/restore/RestorePage.h"

#include <glibmm/miscutils.h>

#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr char kTree[] = "tree", kList[] = "list";
constexpr std::uint32_t kMostFound = 1000;

StoredEntry entryFrom(const PropertyList& values) {
  StoredEntry entry;
  entry.version = values["version"].unsignedLongLongValue();
  entry.size = bytesText(values["size"].unsignedLongLongValue());
  entry.date = dateText(values["backupDate"]);
  return entry;
}

/// Text without wildcards is searched for anywhere in a name.
std::string patternFor(const std::string& text) {
  return text.find_first_of("*?[") == std::string::npos ? "*" + text + "*" : text;
}

}  // namespace

RestorePage::RestorePage(DaemonDesk& desk, JobPane::Finished finished)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      heading_(Gtk::Orientation::HORIZONTAL, kGap),
      buttons_(Gtk::Orientation::HORIZONTAL, 2 * kGap),
      all_(tr("Show All Files")),
      another_(tr("Open Another Folder…")),
      versions_(tr("Show the Versions")),
      chooser_(
          tr("Open Another Folder"), Gtk::FileChooser::Action::SELECT_FOLDER,
          [this](const std::string& path) {
            desk_.perform([path](DaemonSession& session) { session.openFolder(path, TreeKind::restore); });
          }),
      tree_(tr("Files in the backup"), {tr("Restore"), tr("Backed Up On")},
            {
                [this](const std::string& folder) {
                  desk_.perform([folder](DaemonSession& s) { s.lookInto(folder, TreeKind::restore); });
                },
                [this](const std::string& folder) {
                  desk_.perform([folder](DaemonSession& s) { s.closeFolder(folder, TreeKind::restore); });
                },
                [this](const std::string& path, bool on) {
                  desk_.perform([path, on](DaemonSession& session) { session.setSelected(path, on); });
                },
                [this](const NodeRow& row) {
                  chosen_ = row.isFolder ? std::string() : row.path;
                  versions_.set_sensitive(!chosen_.empty());
                  selectionChanged();
                },
            }),
      list_(tr("Files and versions"), tr("Name"), [this] { selectionChanged(); }),
      choices_([this](double time) { goBack(time); }),
      lookAt_(tr("Look at It")),
      restore_(tr("Restore")),
      look_(desk),
      job_(desk, std::move(finished)) {
  setMargin(*this, 2 * kGap);
  addHeading();
  title_.add_css_class("heading");
  makeParagraph(title_);
  append(title_);
  stack_.add(tree_, kTree);
  stack_.add(list_, kList);
  stack_.set_vexpand(true);
  append(stack_);
  append(choices_);
  makeParagraph(selected_);
  restore_.add_css_class("suggested-action");
  restore_.signal_clicked().connect([this] { restore(); });
  lookAt_.signal_clicked().connect([this] { lookAt(); });
  buttons_.append(selected_);
  buttons_.append(lookAt_);
  buttons_.append(restore_);
  append(buttons_);
  append(look_);
  append(job_);
  signal_map().connect([this] {
    askForBackups();
    if (!opened_ && view_ == View::tree) {
      showTree();
    }
  });
  selectionChanged();
}

void RestorePage::addHeading() {
  search_.set_hexpand(true);
  search_.property_placeholder_text() = tr("Search the whole backup by name");
  setAccessibleName(search_, tr("Search the whole backup by name"));
  search_.signal_activate().connect([this] { search(); });
  all_.set_visible(false);
  all_.signal_clicked().connect([this] { showTree(); });
  another_.signal_clicked().connect([this] { chooser_.open(*this); });
  versions_.set_sensitive(false);
  versions_.signal_clicked().connect([this] { showVersions(chosen_); });
  for (Gtk::Widget* widget : std::initializer_list<Gtk::Widget*>{&search_, &versions_, &another_, &all_}) {
    heading_.append(*widget);
  }
  append(heading_);
}

void RestorePage::showTree() {
  view_ = View::tree;
  wanted_.clear();
  title_.set_text(time_ == 0 ? tr("What is ticked is restored.")
                             : filled(tr("The backup as it was on %s. What is ticked is restored."),
                                      dateText(Date::fromUnixTime(time_))));
  stack_.set_visible_child(kTree);
  all_.set_visible(false);
  versions_.set_visible(true);
  another_.set_visible(true);
  choices_.setDateIsOffered(true);
  if (!opened_) {
    opened_ = true;
    desk_.perform([home = Glib::get_home_dir()](DaemonSession& session) {
      session.openFolder(home, TreeKind::restore);
    });
  }
  selectionChanged();
}

void RestorePage::showList(View view, const std::string& title, std::vector<StoredEntry> entries) {
  view_ = view;
  title_.set_text(title);
  stack_.set_visible_child(kList);
  all_.set_visible(true);
  versions_.set_visible(false);
  another_.set_visible(false);
  choices_.setDateIsOffered(view != View::versions);
  list_.show(std::move(entries));
}

void RestorePage::search() {
  const std::string text = search_.get_text();
  if (text.empty()) {
    showTree();
    return;
  }
  wanted_ = text;
  answered_ = false;
  showList(View::found, filled(tr("Searching the backup for %s…"), printable(text)), {});
  desk_.ask("find:", {{"pattern", patternFor(text)}, {"most", kMostFound}},
            [this, text](const OwnerAnswer& answer) { showFound(answer, text); });
}

void RestorePage::showFound(const OwnerAnswer& answer, const std::string& pattern) {
  if (view_ != View::found || wanted_ != pattern) {
    return;
  }
  answered_ = bool(answer);
  if (!answer) {
    title_.set_text(problemOf(answer));
    return;
  }
  const PropertyList found = answer.values["entries"];
  std::vector<StoredEntry> entries;
  for (std::size_t i = 0; i < found.count(); ++i) {
    StoredEntry entry = entryFrom(found[i]);
    entry.version = 0;  // the newest, or the one that a date selects
    entry.path = found[i]["path"].string();
    entry.title = printable(entry.path);
    entry.state = found[i]["deleted"].boolValue() ? tr("Deleted here") : "";
    entries.push_back(std::move(entry));
  }
  const char* const title = answer.values["more"].boolValue()
                                ? tr("The first of the files in the backup that fit %s:")
                                : tr("Files in the backup that fit %s:");
  const bool none = entries.empty();
  showList(View::found, filled(none ? tr("Nothing in the backup fits %s.") : title, printable(pattern)),
           std::move(entries));
}

void RestorePage::showVersions(const std::string& path) {
  wanted_ = path;
  answered_ = false;
  showList(View::versions, filled(tr("Looking for the versions of %s…"), printable(path)), {});
  desk_.perform([path](DaemonSession& session) { session.askAbout(path); });
}

void RestorePage::show(const PathAnswer& answer) {
  if (view_ != View::versions || answer.path != wanted_) {
    return;
  }
  answered_ = true;
  const PropertyList versions = answer.node["versions"];
  std::vector<StoredEntry> entries;
  for (std::size_t i = 0; i < versions.count(); ++i) {
    StoredEntry entry = entryFrom(versions[i]);
    entry.path = answer.path;
    entry.title = filled(tr("Version %s"), countText(entry.version));
    entry.state = i == 0 ? tr("The newest") : "";
    entries.push_back(std::move(entry));
  }
  const bool none = entries.empty();
  showList(View::versions,
           filled(none ? tr("No version of %s is in the backup.") : tr("Versions of %s in the backup:"),
                  printable(answer.path)),
           std::move(entries));
}

void RestorePage::showMissing(const std::string& folder) {
  wanted_ = folder;
  answered_ = false;
  showList(View::missing, filled(tr("Looking for what was deleted from %s…"), printable(folder)), {});
  desk_.perform([folder](DaemonSession& session) { session.askForMissing(folder); });
}

void RestorePage::show(const MissingAnswer& answer) {
  if (view_ != View::missing || answer.folder != wanted_) {
    return;
  }
  answered_ = true;
  std::vector<StoredEntry> entries;
  for (std::size_t i = 0; i < answer.nodes.count(); ++i) {
    const PropertyList node = answer.nodes[i];
    StoredEntry entry = entryFrom(node);
    entry.version = 0;
    entry.path = (answer.folder == "/" ? "" : answer.folder) + "/" + std::string(node["fileName"].string());
    entry.title = printable(node["fileName"].string());
    entry.isFolder = node["isDirectory"].boolValue();
    entry.size = entry.isFolder ? std::string() : entry.size;
    entry.state = node["isDirectory"].boolValue() ? tr("Folder, deleted here") : tr("Deleted here");
    entries.push_back(std::move(entry));
  }
  const bool none = entries.empty();
  showList(View::missing,
           filled(none ? tr("Nothing that is in the backup was deleted from %s.")
                       : tr("Deleted from %s, and in the backup:"),
                  printable(answer.folder)),
           std::move(entries));
}

void RestorePage::show(const Selection& selection) {
  paths_ = selection.paths;
  selectionChanged();
}

void RestorePage::askForBackups() {
  desk_.ask("backups:", {}, [this](const OwnerAnswer& answer) {
    const PropertyList dates = answer.values["dates"];
    std::vector<double> times;
    times.reserve(dates.count());
    for (std::size_t i = 0; i < dates.count(); ++i) {
      times.push_back(dates[i].date().unixTime());
    }
    choices_.showBackups(times);
  });
}

void RestorePage::goBack(double time) {
  time_ = time;
  desk_.perform([past = time == 0 ? NodeTree::Past() : desk_.pastAt(time)](DaemonSession& session) {
    session.showPast(past);
  });
  if (view_ == View::tree) {
    showTree();
  }
}

std::optional<StoredEntry> RestorePage::entryToLookAt() const {
  if (view_ == View::tree) {
    StoredEntry entry;
    entry.path = chosen_;
    return chosen_.empty() ? std::nullopt : std::optional(entry);
  }
  const std::vector<StoredEntry> selected = list_.selected();
  return selected.size() == 1 && !selected.front().isFolder ? std::optional(selected.front()) : std::nullopt;
}

void RestorePage::lookAt() {
  const std::optional<StoredEntry> entry = entryToLookAt();
  if (!entry || !choices_.isComplete()) {
    return;
  }
  PropertyList::Entries choice;
  for (const auto& [key, value] : choices_.request()) {
    if (key.string() == "before") {
      choice.emplace_back(key, value);
    }
  }
  look_.look(entry->path, entry->version, choice);
}

void RestorePage::selectionChanged() {
  const std::size_t count = view_ == View::tree ? paths_.size() : list_.selected().size();
  selected_.set_text(
      count == 0 ? tr("Nothing is selected.")
                 : filled(trn("%s item is selected.", "%s items are selected.", count), countText(count)));
  restore_.set_sensitive(count > 0);
  lookAt_.set_sensitive(entryToLookAt().has_value());
}

void RestorePage::askAgain() {
  if (answered_) {
    return;
  }
  if (view_ == View::versions) {
    showVersions(std::string(wanted_));
  } else if (view_ == View::missing) {
    showMissing(std::string(wanted_));
  }
}

void RestorePage::followRunning(std::uint32_t job) {
  if (job != 0 && !job_.isFollowing() && !look_.isFollowing() && !look_.isOwn(job)) {
    job_.follow(job, {});
  }
}

void RestorePage::restore() {
  if (!choices_.isComplete()) {
    return;
  }
  PropertyList::Array items;
  std::string first;
  const auto add = [&](const std::string& path, std::uint64_t version) {
    first = first.empty() ? path : first;
    items.push_back(PropertyList::dictionary({{"path", path}, {"version", version}}));
  };
  if (view_ == View::tree) {
    for (const std::string& path : paths_) {
      add(path, 0);
    }
  } else {
    for (const StoredEntry& entry : list_.selected()) {
      add(entry.path, entry.version);
    }
  }
  PropertyList::Entries request = choices_.request();
  request.emplace_back("items", PropertyList::array(std::move(items)));
  const std::string folder = choices_.target().empty() ? std::string(parentPath(first)) : choices_.target();
  restore_.set_sensitive(false);
  desk_.ask("restore:", std::move(request), [this, folder](const OwnerAnswer& answer) {
    selectionChanged();
    if (answer) {
      job_.follow(answer.values["job"].unsignedLongLongValue(), folder);
    } else {
      job_.say(problemOf(answer));
    }
  });
}

}  // namespace keldane
