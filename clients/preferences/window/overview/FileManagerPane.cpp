#include "clients/preferences/window/overview/FileManagerPane.h"

#include <utility>

#include "clients/core/words/Printable.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

/// The titles, in the order of the switches.
constexpr std::array<const char*, kFileManagerSwitches.size()> kTitles = {
    marked("Show emblems on files and folders"),
    marked("Offer the columns of the backup in lists"),
    marked("Offer in menus to restore files"),
};

}  // namespace

FileManagerPane::FileManagerPane(DaemonDesk& desk) : Gtk::Box(Gtk::Orientation::VERTICAL, kGap), desk_(desk) {
  append(*heading(tr("File manager")));
  for (std::size_t i = 0; i < switches_.size(); ++i) {
    Gtk::CheckButton& button = switches_[i];
    button.set_label(tr(kTitles[i]));
    button.signal_toggled().connect([this, i] {
      if (!showing_) {
        ++wished_;
        write(i);
      }
    });
    append(button);
  }
  makeParagraph(refusal_);
  refusal_.set_visible(false);
  append(refusal_);
  signal_map().connect([this] { read(); });
}

// The file may lie on a slow disk, so another thread reads it.
void FileManagerPane::read() {
  desk_.aside([this, wished = wished_]() -> std::function<void()> {
    return [this, wished, options = FileManagerOptions::read()] {
      if (wished == wished_) {
        show(options);
      }
    };
  });
}

void FileManagerPane::show(const FileManagerOptions& options) {
  showing_ = true;
  for (std::size_t i = 0; i < switches_.size(); ++i) {
    switches_[i].set_active(options.*kFileManagerSwitches[i].option);
  }
  showing_ = false;
}

// Only one write runs for each switch at a time, so the last choice is the one that stays in the file.
void FileManagerPane::write(std::size_t number) {
  if (std::exchange(writing_[number], true)) {
    return;
  }
  const bool on = switches_[number].get_active();
  desk_.aside([this, number, on]() -> std::function<void()> {
    return [this, number, on, written = kFileManagerSwitches[number].set(on)] {
      writing_[number] = false;
      refusal_.set_visible(!written);
      if (!written) {
        refusal_.set_text(
            filled(tr("The preferences %s cannot be written."), printable(FileManagerOptions::file())));
        read();
      } else if (switches_[number].get_active() != on) {
        write(number);
      }
    };
  });
}

}  // namespace keldane
