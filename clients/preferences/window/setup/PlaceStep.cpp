#include "clients/preferences/window/setup/PlaceStep.h"

#include <glibmm/main.h>
#include <gtkmm/stringlist.h>

#include "clients/core/key/KeySheet.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"

namespace keldane {

namespace {

constexpr unsigned kDiskInterval = 2;  // seconds
constexpr char kFolderOnDisk[] = "/keldane-backup";
constexpr int kIndent = 4 * kGap;

}  // namespace

PlaceStep::PlaceStep(DaemonDesk& desk)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      thisDisk_(tr("On this disk")),
      externalDisk_(tr("On an external disk")),
      server_(tr("On a server")),
      diskBox_(Gtk::Orientation::VERTICAL, kGap),
      existing_(tr("There is a backup already, and it is to be gone on with")) {
  append(*heading(tr("Where should the backup be kept?")));
  externalDisk_.set_group(thisDisk_);
  server_.set_group(thisDisk_);
  addThisDisk();
  addDisks();
  addServer();
  addExisting();
  makeParagraph(problem_);
  problem_.add_css_class("error");
  problem_.set_visible(false);
  append(problem_);
  for (Gtk::CheckButton* button : {&thisDisk_, &externalDisk_, &server_, &existing_}) {
    button->signal_toggled().connect([this] { showKind(); });
  }
  externalDisk_.set_active(true);
  showKind();
  signal_map().connect([this] {
    lookForDisks();
    timer_ = Glib::signal_timeout().connect_seconds(
        [this] {
          lookForDisks();
          return true;
        },
        kDiskInterval);
  });
  signal_unmap().connect([this] { timer_.disconnect(); });
}

PlaceStep::~PlaceStep() { timer_.disconnect(); }

void PlaceStep::addThisDisk() {
  makeParagraph(warning_);
  warning_.set_text(
      tr("This helps against deleting and changing files by mistake. It does not help when the disk breaks "
         "or the "
         "computer is lost: the backup goes with it."));
  warning_.set_margin_start(kIndent);
  append(thisDisk_);
  append(warning_);
}

void PlaceStep::addDisks() {
  makeParagraph(noDisk_);
  noDisk_.set_text(tr("No external disk is there. Plug one in; it is shown here as soon as it can be used."));
  setAccessibleName(diskChoice_, tr("External disk"));
  diskChoice_.set_halign(Gtk::Align::START);
  diskBox_.append(noDisk_);
  diskBox_.append(diskChoice_);
  diskBox_.set_margin_start(kIndent);
  append(externalDisk_);
  append(diskBox_);
}

void PlaceStep::addServer() {
  serverGrid_.set_column_spacing(2 * kGap);
  serverGrid_.set_row_spacing(kGap);
  serverGrid_.set_margin_start(kIndent);
  std::vector<Glib::ustring> kinds;
  kinds.reserve(kServers.size());
  for (const ServerKind& kind : kServers) {
    kinds.emplace_back(tr(kind.title));
  }
  serverKind_.set_model(Gtk::StringList::create(kinds));
  setAccessibleName(serverKind_, tr("Kind of server"));
  serverGrid_.attach(serverKind_, 0, 0, 2, 1);
  int row = 1;
  for (std::size_t i = 0; i < fields_.size(); ++i, ++row) {
    fields_[i].set_hexpand(true);
    serverGrid_.attach(fieldTitles_[i], 0, row);
    serverGrid_.attach(fields_[i], 1, row);
  }
  serverGrid_.attach(secretTitle_, 0, row);
  serverGrid_.attach(secret_, 1, row);
  secret_.set_show_peek_icon(true);
  serverKind_.property_selected().signal_changed().connect([this] { showServerKind(); });
  showServerKind();
  append(server_);
  append(serverGrid_);
}

void PlaceStep::showServerKind() {
  const ServerKind& kind = kServers.at(serverKind_.get_selected());
  const auto show = [](Gtk::Label& title, Gtk::Widget& field, const char* text) {
    title.set_visible(text != nullptr);
    field.set_visible(text != nullptr);
    if (text != nullptr) {
      setTitle(title, tr(text));
      setAccessibleName(field, tr(text));
    }
  };
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    show(fieldTitles_[i], fields_[i], kind.fields[i]);
  }
  show(secretTitle_, secret_, kind.secret);
}

void PlaceStep::addExisting() {
  existingKey_.property_placeholder_text() = tr("Its key or passphrase");
  setAccessibleName(existingKey_, tr("Its key or passphrase"));
  existingKey_.set_show_peek_icon(true);
  existingKey_.set_margin_start(kIndent);
  append(existing_);
  append(existingKey_);
}

void PlaceStep::showKind() {
  warning_.set_visible(thisDisk_.get_active());
  diskBox_.set_visible(externalDisk_.get_active());
  serverGrid_.set_visible(server_.get_active());
  existingKey_.set_visible(existing_.get_active());
  say({});
}

void PlaceStep::say(const std::string& sentence) {
  problem_.set_text(sentence);
  problem_.set_visible(!sentence.empty());
}

// A disk that does not answer delays only its own look-up; no other begins meanwhile.
void PlaceStep::lookForDisks() {
  if (looking_) {
    return;
  }
  looking_ = true;
  desk_.aside([this]() -> std::function<void()> {
    return [this, disks = mountedDisks()] {
      looking_ = false;
      showDisks(disks);
    };
  });
}

void PlaceStep::showDisks(const std::vector<MountedDisk>& disks) {
  noDisk_.set_visible(disks.empty());
  diskChoice_.set_visible(!disks.empty());
  const bool isSame = std::equal(disks.begin(), disks.end(), disks_.begin(), disks_.end(),
                                 [](const MountedDisk& a, const MountedDisk& b) { return a.path == b.path; });
  if (isSame) {
    return;
  }
  disks_ = disks;
  std::vector<Glib::ustring> titles;
  titles.reserve(disks.size());
  for (const MountedDisk& disk : disks) {
    titles.emplace_back(filled(tr("%s (%s of %s free)"), printable(disk.path), bytesText(disk.freeBytes),
                               bytesText(disk.allBytes)));
  }
  diskChoice_.set_model(Gtk::StringList::create(titles));
}

ServerPlace PlaceStep::place(std::string& problem) const {
  if (thisDisk_.get_active()) {
    problem = dataFolder_.empty() ? tr("The backup daemon cannot be reached.") : "";
    return {dataFolder_ + "/repository", {}};
  }
  if (externalDisk_.get_active()) {
    if (disks_.empty()) {
      problem = tr("Please plug in the disk first, or choose another place.");
      return {};
    }
    return {disks_.at(diskChoice_.get_selected()).path + kFolderOnDisk, {}};
  }
  return serverPlace(serverKind_.get_selected(), {fields_[0].get_text(), fields_[1].get_text()},
                     secret_.get_text(), problem);
}

std::optional<PropertyList::Entries> PlaceStep::request() {
  std::string problem;
  const ServerPlace chosen = place(problem);
  PropertyList::Entries entries = {{"location", chosen.location},
                                   {"environment", PropertyList::dictionary(chosen.environment)},
                                   {"adopt", existing_.get_active()}};
  if (problem.empty() && existing_.get_active()) {
    const std::string typed = existingKey_.get_text();
    const KeyReading reading = readKey(typed);
    if (typed.empty()) {
      problem = tr("Please type the key or the passphrase of the backup that is there.");
    }
    // Text that is not a generated key is a passphrase.
    entries.emplace_back("key", isMadeKey(reading.key) ? reading.key : typed);
  }
  say(problem);
  return problem.empty() ? std::optional(entries) : std::nullopt;
}

}  // namespace keldane
