// Small things that all pages build with.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/widget.h>

#include <string>

namespace keldane {

/// Pixels between what belongs together; the window's own parts stand twice as far apart.
constexpr int kGap = 6;

/// The name by which who does not see the widget is told of it.
void setAccessibleName(Gtk::Widget& widget, const std::string& name);
/// The same space on all sides.
void setMargin(Gtk::Widget& widget, int margin);
/// What a widget is called by a label that stands before or above it.
void setTitle(Gtk::Label& label, const char* text);

/// A text of as many lines as it needs, from the left.
Gtk::Label* paragraph(const std::string& text = {});
void makeParagraph(Gtk::Label& label);
Gtk::Label* heading(const char* text);

/// Opens a folder in the file manager; what cannot be opened is logged by the toolkit.
void showFolder(const std::string& path);

}  // namespace keldane
