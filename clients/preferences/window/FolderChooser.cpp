#include "clients/preferences/window/FolderChooser.h"

#include <gtkmm/window.h>

#include "clients/preferences/words/Translation.h"

namespace keldane {

FolderChooser::FolderChooser(const char* title, Gtk::FileChooser::Action action, Chosen chosen)
    : title_(title), action_(action), chosen_(std::move(chosen)) {}

void FolderChooser::open(Gtk::Widget& widget, const std::string& name) {
  if (!dialog_) {
    make(widget);
  }
  if (!name.empty()) {
    dialog_->set_current_name(name);
  }
  dialog_->present();
}

void FolderChooser::make(Gtk::Widget& widget) {
  const bool saves = action_ == Gtk::FileChooser::Action::SAVE;
  dialog_ = std::make_unique<Gtk::FileChooserDialog>(title_, action_);
  dialog_->set_transient_for(dynamic_cast<Gtk::Window&>(*widget.get_root()));
  dialog_->set_modal(true);
  dialog_->set_hide_on_close(true);
  dialog_->add_button(tr("_Cancel"), Gtk::ResponseType::CANCEL);
  dialog_->add_button(saves ? tr("_Save") : tr("_Open"), Gtk::ResponseType::OK);
  dialog_->set_default_response(Gtk::ResponseType::OK);
  dialog_->signal_response().connect([this](int response) {
    const Glib::RefPtr<Gio::File> file = dialog_->get_file();
    dialog_->hide();
    if (response == Gtk::ResponseType::OK && file && !file->get_path().empty()) {
      chosen_(file->get_path());
    }
  });
}

}  // namespace keldane
