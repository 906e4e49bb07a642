#include "clients/preferences/window/storage/StoragePage.h"

#include <gtkmm/adjustment.h>

#include <filesystem>

#include "clients/core/place/Location.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/words/RepositoryWords.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kShortestPassphrase = 12;
constexpr std::uint32_t kDrillSample = 100;
constexpr int kRoomWidth = 160;
constexpr double kMostSetting = 100'000'000;

}  // namespace

StoragePage::StoragePage(DaemonDesk& desk, std::function<void()> setUp, std::function<void()> changed)
    : desk_(desk),
      setUp_(std::move(setUp)),
      changed_(std::move(changed)),
      content_(Gtk::Orientation::VERTICAL, 2 * kGap),
      checks_(Gtk::Orientation::HORIZONTAL, kGap),
      checking_(Gtk::Orientation::HORIZONTAL, kGap),
      checkNow_(tr("Check Now")),
      checkData_(tr("Read Everything")),
      drill_(tr("Try a Restore")),
      another_(tr("Keep It Elsewhere…")),
      roomBox_(Gtk::Orientation::HORIZONTAL, kGap),
      move_(desk, [this] { changed_(); }),
      key_(desk, [] {}),
      keyChange_(desk, [this] { key_.reveal(); }),
      passphraseBox_(Gtk::Orientation::HORIZONTAL, kGap),
      addPassphrase_(tr("Add the Passphrase")),
      keepDeleted_(Gtk::Adjustment::create(90, 0, kMostSetting, 1, 30)),
      quota_(Gtk::Adjustment::create(0, 0, kMostSetting, 100, 1000)),
      alertAfter_(Gtk::Adjustment::create(3, 0, kMostSetting, 1, 7)),
      apply_(tr("Apply")) {
  setMargin(content_, 2 * kGap);
  content_.append(*heading(tr("Where the backup is kept")));
  values_.set_column_spacing(2 * kGap);
  values_.set_row_spacing(kGap / 2);
  content_.append(values_);
  for (const RepositoryRow& row : kRepositoryRows) {
    addRow(row.key, tr(row.title));
  }
  addRoom();
  another_.set_halign(Gtk::Align::START);
  another_.signal_clicked().connect([this] { setUp_(); });
  content_.append(another_);
  content_.append(move_);
  addChecks();
  addKey();
  addKeeping();
  set_child(content_);
  set_policy(Gtk::PolicyType::AUTOMATIC, Gtk::PolicyType::AUTOMATIC);
  signal_map().connect([this] { askForSettings(); });
  signal_unmap().connect([this] { key_.hideKey(); });
}

void StoragePage::addRow(const char* key, const char* title) {
  auto* const label = Gtk::make_managed<Gtk::Label>();
  setTitle(*label, title);
  label->set_valign(Gtk::Align::START);
  const int row = static_cast<int>(labels_.size());
  Gtk::Label* const value = labels_[key] = paragraph("–");
  values_.attach(*label, 0, row);
  values_.attach(*value, 1, row);
}

void StoragePage::set(const char* key, const std::string& text) {
  labels_.at(key)->set_text(text.empty() ? "–" : text);
}

void StoragePage::show(const OwnerAnswer& answer) {
  if (!answer) {
    for (const auto& [key, label] : labels_) {
      label->set_text("–");
    }
    set("health", problemOf(answer));
    return;
  }
  for (const RepositoryRow& row : kRepositoryRows) {
    set(row.key, repositoryText(row.key, answer.values));
  }
  askForRoom(std::string(answer.values["location"].string()));
  move_.setDataFolder(std::string(answer.values["dataFolder"].string()));
}

void StoragePage::addRoom() {
  const int row = static_cast<int>(labels_.size());
  setTitle(roomTitle_, tr("Free room"));
  setAccessibleName(room_, tr("How full the disk is"));
  room_.set_size_request(kRoomWidth, -1);
  room_.set_valign(Gtk::Align::CENTER);
  roomText_.set_xalign(0);
  roomBox_.append(room_);
  roomBox_.append(roomText_);
  values_.attach(roomTitle_, 0, row);
  values_.attach(roomBox_, 1, row);
  askForRoom({});
}

// A server does not tell how much space is left.
void StoragePage::askForRoom(const std::string& location) {
  const bool isKnown = isFolder(location) && !location.empty();
  roomTitle_.set_visible(isKnown);
  roomBox_.set_visible(isKnown);
  if (!isKnown) {
    return;
  }
  desk_.aside([this, location]() -> std::function<void()> {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(location, error);
    if (error || space.capacity == 0) {
      return [this] { roomText_.set_text("–"); };
    }
    return [this, space] {
      room_.set_value(1 - static_cast<double>(space.available) / static_cast<double>(space.capacity));
      roomText_.set_text(
          filled(tr("%s of %s are free"), bytesText(space.available), bytesText(space.capacity)));
    };
  });
}

void StoragePage::addChecks() {
  content_.append(*heading(tr("Whether it can be restored")));
  content_.append(*paragraph(tr(
      "Checking looks whether what is stored is whole. Reading everything takes as long as reading the whole "
      "backup. A trial restores some files and compares them with what is on this computer.")));
  const auto add = [this](Gtk::Button& button, const char* mode, const char* saying) {
    button.signal_clicked().connect([this, mode, saying] { check(mode, saying); });
    checks_.append(button);
  };
  add(checkNow_, "structure", tr("Checking the backup; it goes on when this window is closed."));
  add(checkData_, "data", tr("Reading all that is stored; it goes on when this window is closed."));
  add(drill_, "drill", tr("Restoring some files and comparing them."));
  content_.append(checks_);
  makeParagraph(checkResult_);
  checking_.append(spinner_);
  checking_.append(checkResult_);
  checking_.set_visible(false);
  content_.append(checking_);
}

void StoragePage::check(const char* mode, const char* saying) {
  PropertyList::Entries request = {{"mode", mode}};
  if (std::string_view(mode) == "drill") {
    request.emplace_back("sample", kDrillSample);
  }
  checks_.set_sensitive(false);
  checking_.set_visible(true);
  spinner_.set_visible(true);
  spinner_.start();
  checkResult_.set_text(saying);
  desk_.askForLong("check:", std::move(request), [this](const OwnerAnswer& answer) { showCheck(answer); });
}

void StoragePage::showCheck(const OwnerAnswer& answer) {
  checks_.set_sensitive(true);
  spinner_.stop();
  spinner_.set_visible(false);
  std::string text = problemOf(answer);
  if (answer) {
    text = printable(answer.values["result"].string());
    for (const char* key : {"damagedFiles", "failed"}) {
      const PropertyList paths = answer.values[key];
      for (std::size_t i = 0; i < paths.count(); ++i) {
        text += '\n' + printable(paths[i].string());
      }
    }
  }
  checkResult_.set_text(text);
  changed_();
}

void StoragePage::addKey() {
  content_.append(*heading(tr("The key")));
  content_.append(*paragraph(
      tr("Nobody can read the backup without its key, you neither. Keep a copy apart from this computer.")));
  content_.append(key_);
  content_.append(keyChange_);
  content_.append(*paragraph(tr(
      "A passphrase of your own opens the backup too. What is stored is not encrypted anew by that, and the "
      "key goes on opening it.")));
  setAccessibleName(passphrase_, tr("New passphrase"));
  setAccessibleName(again_, tr("The passphrase once more"));
  passphrase_.property_placeholder_text() = tr("New passphrase");
  again_.property_placeholder_text() = tr("Once more");
  for (Gtk::Widget* widget : std::initializer_list<Gtk::Widget*>{&passphrase_, &again_, &addPassphrase_}) {
    passphraseBox_.append(*widget);
  }
  content_.append(passphraseBox_);
  makeParagraph(passphraseResult_);
  content_.append(passphraseResult_);
  addPassphrase_.signal_clicked().connect([this] { addPassphrase(); });
}

void StoragePage::addPassphrase() {
  const std::string passphrase = passphrase_.get_text();
  if (passphrase != std::string(again_.get_text())) {
    passphraseResult_.set_text(tr("The two are not the same; nothing was changed."));
    return;
  }
  if (passphrase.size() < kShortestPassphrase) {
    passphraseResult_.set_text(
        tr("A passphrase has at least 12 characters: who gets at the backup can try many."));
    return;
  }
  if (passphrase.find_first_of(" \t") == 0 || passphrase.find_last_of(" \t") == passphrase.size() - 1) {
    passphraseResult_.set_text(tr("A passphrase neither begins nor ends with a blank."));
    return;
  }
  passphraseBox_.set_sensitive(false);
  passphraseResult_.set_text(tr("Adding the passphrase…"));
  desk_.askForLong("addPassphrase:", {{"passphrase", passphrase}}, [this](const OwnerAnswer& answer) {
    passphraseBox_.set_sensitive(true);
    passphraseResult_.set_text(answer ? tr("The passphrase opens the backup too.") : problemOf(answer));
    if (answer) {
      passphrase_.set_text({});
      again_.set_text({});
    }
  });
}

void StoragePage::addKeeping() {
  content_.append(*heading(tr("How long and how much is kept")));
  content_.append(*paragraph(tr(
      "Of the last hour every version is kept, of the last day one an hour, of the last 30 days one a day, "
      "of the last year one a week, and of each file always the newest.")));
  keeping_.set_column_spacing(2 * kGap);
  keeping_.set_row_spacing(kGap);
  int row = 0;
  const auto add = [&](const char* title, Gtk::SpinButton& button, const char* unit) {
    auto* const label = Gtk::make_managed<Gtk::Label>();
    setTitle(*label, title);
    setAccessibleName(button, title);
    keeping_.attach(*label, 0, row);
    keeping_.attach(button, 1, row);
    keeping_.attach(*Gtk::make_managed<Gtk::Label>(unit, Gtk::Align::START), 2, row++);
  };
  add(tr("Deleted files are kept for"), keepDeleted_, tr("days"));
  add(tr("The backup may take"), quota_, tr("MiB; 0 for no limit"));
  add(tr("Tell me when there was no good backup for"), alertAfter_, tr("days"));
  keeping_.attach(apply_, 1, row);
  keeping_.set_sensitive(false);
  content_.append(keeping_);
  makeParagraph(settingsResult_);
  content_.append(settingsResult_);
  apply_.signal_clicked().connect([this] { applySettings(); });
}

void StoragePage::askForSettings() {
  desk_.ask("settings:", {}, [this](const OwnerAnswer& answer) { showSettings(answer); });
}

void StoragePage::applySettings() {
  for (Gtk::SpinButton* button : {&keepDeleted_, &quota_, &alertAfter_}) {
    button->update();
  }
  desk_.ask(
      "settings:",
      {{"keepDeletedDays", keepDeleted_.get_value_as_int()},
       {"quotaMB", quota_.get_value_as_int()},
       {"alertDays", alertAfter_.get_value_as_int()}},
      [this](const OwnerAnswer& answer) {
        showSettings(answer);
        settingsResult_.set_text(answer ? tr("The settings are as they stand here now.") : problemOf(answer));
      });
}

void StoragePage::showSettings(const OwnerAnswer& answer) {
  keeping_.set_sensitive(bool(answer));
  if (!answer) {
    settingsResult_.set_text(problemOf(answer));
    return;
  }
  settingsResult_.set_text({});
  keepDeleted_.set_value(answer.values["keepDeletedDays"].unsignedIntValue());
  quota_.set_value(answer.values["quotaMB"].unsignedIntValue());
  alertAfter_.set_value(answer.values["alertDays"].unsignedIntValue());
}

}  // namespace keldane
