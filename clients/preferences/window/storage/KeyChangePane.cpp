#include "clients/preferences/window/storage/KeyChangePane.h"

#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

KeyChangePane::KeyChangePane(DaemonDesk& desk, std::function<void()> changed)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      changed_(std::move(changed)),
      begin_(tr("Change the Key…")),
      change_(tr("Make a New Key")),
      leave_(tr("Leave It as It Is")),
      question_(Gtk::Orientation::VERTICAL, kGap),
      buttons_(Gtk::Orientation::HORIZONTAL, kGap) {
  begin_.set_halign(Gtk::Align::START);
  append(begin_);
  question_.append(*paragraph(
      tr("A new key opens the backup then, and the present one no longer does. What is stored is not "
         "encrypted anew: who has the present key and a copy of the backup made so far can still read that "
         "copy. Every sheet and every saved copy of the present key becomes useless.")));
  buttons_.append(change_);
  buttons_.append(leave_);
  question_.append(buttons_);
  question_.set_visible(false);
  append(question_);
  makeParagraph(said_);
  said_.set_visible(false);
  append(said_);
  begin_.signal_clicked().connect([this] { question_.set_visible(!question_.get_visible()); });
  leave_.signal_clicked().connect([this] { question_.set_visible(false); });
  change_.signal_clicked().connect([this] { change(); });
}

void KeyChangePane::change() {
  begin_.set_sensitive(false);
  question_.set_visible(false);
  said_.set_visible(true);
  said_.set_text(tr("Changing the key…"));
  desk_.askForLong("changeKey:", {}, [this](const OwnerAnswer& answer) {
    begin_.set_sensitive(true);
    said_.set_text(answer
                       ? tr("A new key opens the backup now. Save it or print its sheet, and throw the old "
                            "copies away.")
                       : problemOf(answer));
    if (answer) {
      changed_();
    }
  });
}

}  // namespace keldane
