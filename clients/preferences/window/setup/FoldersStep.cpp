#include "clients/preferences/window/setup/FoldersStep.h"

#include <glibmm/miscutils.h>

#include <algorithm>
#include <filesystem>

#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/words/Translation.h"
#include "clients/preferences/worker/own/FolderSizes.h"

namespace keldane {

FoldersStep::FoldersStep(DaemonDesk& desk) : Gtk::Box(Gtk::Orientation::VERTICAL, kGap), desk_(desk) {
  append(*heading(tr("What should be backed up?")));
  const std::string home = Glib::get_home_dir();
  using Directory = Glib::UserDirectory;
  for (const Directory directory : {Directory::DOCUMENTS, Directory::PICTURES, Directory::MUSIC,
                                    Directory::VIDEOS, Directory::DESKTOP, Directory::DOWNLOAD}) {
    const std::string path = Glib::get_user_special_dir(directory);
    // The home folder itself stands for a user folder that is not set up.
    if (!path.empty() && path != home) {
      add(path, directory != Directory::DOWNLOAD);
    }
  }
  add(home, folders_.empty());
  makeParagraph(sum_);
  append(sum_);
  append(*paragraph(
      tr("Waste baskets and caches are left out. Single files and folders can be added and taken out "
         "later, on the page Rules and in the file manager.")));
  signal_map().connect([this] {
    if (!measuring_) {
      measuring_ = true;
      measure(0);
    }
  });
  showSum();
}

void FoldersStep::add(const std::string& path, bool ticked) {
  const auto isSame = [&](const auto& each) { return each->path == path; };
  std::error_code error;
  if (std::any_of(folders_.begin(), folders_.end(), isSame) || !std::filesystem::is_directory(path, error)) {
    return;
  }
  folders_.push_back(std::make_unique<Folder>());
  Folder& folder = *folders_.back();
  folder.path = path;
  folder.box.set_label(path == Glib::get_home_dir() ? filled(tr("Everything in %s"), printable(path))
                                                    : printable(path));
  folder.box.set_active(ticked);
  folder.box.set_hexpand(true);
  folder.box.signal_toggled().connect([this] { showSum(); });
  folder.sizeText.set_text("…");
  auto* const row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 2 * kGap);
  row->append(folder.box);
  row->append(folder.sizeText);
  append(*row);
}

// The folders are measured one after the other, so that the disk is not asked for everything at once.
void FoldersStep::measure(std::size_t place) {
  if (place >= folders_.size()) {
    return;
  }
  desk_.aside([this, place, path = folders_[place]->path]() -> std::function<void()> {
    return [this, place, size = sizeOfFolder(path)] {
      Folder& folder = *folders_[place];
      folder.files = size.files;
      folder.bytes = size.bytes;
      folder.isKnown = true;
      folder.sizeText.set_text(filesWords(size.files) + ", " + bytesText(size.bytes));
      showSum();
      measure(place + 1);
    };
  });
}

void FoldersStep::showSum() {
  std::uint64_t bytes = 0;
  bool isKnown = true, isAny = false, hasHome = false;
  for (const auto& folder : folders_) {
    if (folder->box.get_active() && !hasHome) {
      const bool isHome = folder->path == Glib::get_home_dir();
      bytes = isHome ? folder->bytes : bytes + folder->bytes;
      isKnown = isHome ? folder->isKnown : isKnown && folder->isKnown;
      isAny = true;
      hasHome = isHome;
    }
  }
  sum_.set_text(!isAny    ? tr("Nothing is chosen: nothing will be backed up.")
                : isKnown ? filled(tr("The first backup takes about %s where it is kept, often less."),
                                   bytesText(bytes))
                          : tr("Looking how much it is…"));
}

std::size_t FoldersStep::apply() {
  std::size_t count = 0;
  for (const auto& folder : folders_) {
    if (folder->box.get_active()) {
      ++count;
      desk_.perform([path = folder->path](DaemonSession& session) { session.setIncluded(path, true); });
    }
  }
  return count;
}

}  // namespace keldane
