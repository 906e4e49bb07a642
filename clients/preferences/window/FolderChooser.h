// Asks a person for a folder, or for a file to write.
#pragma once

#include <gtkmm/filechooserdialog.h>

#include <functional>
#include <memory>
#include <string>

namespace keldane {

/// One dialog, which is made when it is first needed. Used on the window's thread.
class FolderChooser {
 public:
  using Chosen = std::function<void(const std::string& path)>;

  /// `title` is also the dialog's name for a person who looks for it.
  FolderChooser(const char* title, Gtk::FileChooser::Action action, Chosen chosen);

  /// Opens over the window that holds the widget; `name` is proposed for a file.
  void open(Gtk::Widget& widget, const std::string& name = {});

 private:
  void make(Gtk::Widget& widget);

  const char* const title_;
  const Gtk::FileChooser::Action action_;
  const Chosen chosen_;
  std::unique_ptr<Gtk::FileChooserDialog> dialog_;
};

}  // namespace keldane
