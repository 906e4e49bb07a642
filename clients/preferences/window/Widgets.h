// Small things that all pages build with.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/widget.h>

#include <string>

namespace keldane {

/// Pixels between widgets that belong together; the window's own parts stand twice as far apart.
constexpr int kGap = 6;

/// Sets the name by which assistive technology announces the widget.
void setAccessibleName(Gtk::Widget& widget, const std::string& name);
/// Sets the same margin on all sides.
void setMargin(Gtk::Widget& widget, int margin);
/// Sets the label that stands before or above a widget and names it.
void setTitle(Gtk::Label& label, const char* text);

/// A label that takes as many lines as its text needs, aligned left.
Gtk::Label* paragraph(const std::string& text = {});
void makeParagraph(Gtk::Label& label);
Gtk::Label* heading(const char* text);

/// Opens a folder in the file manager; what cannot be opened is logged by the toolkit.
void showFolder(const std::string& path);

}  // namespace keldane
