#include "clients/preferences/window/Widgets.h"

#include <giomm/appinfo.h>
#include <giomm/file.h>

namespace keldane {

void setAccessibleName(Gtk::Widget& widget, const std::string& name) {
  Glib::Value<Glib::ustring> value;
  value.init(Glib::Value<Glib::ustring>::value_type());
  value.set(name);
  widget.update_property(Gtk::Accessible::Property::LABEL, value);
}

void setMargin(Gtk::Widget& widget, int margin) { widget.set_margin(margin); }

void setTitle(Gtk::Label& label, const char* text) {
  label.set_text(text);
  label.set_xalign(0);
  label.add_css_class("dim-label");
}

void makeParagraph(Gtk::Label& label) {
  label.set_xalign(0);
  label.set_wrap(true);
  label.set_wrap_mode(Pango::WrapMode::WORD_CHAR);
  label.set_hexpand(true);
}

Gtk::Label* paragraph(const std::string& text) {
  auto* const label = Gtk::make_managed<Gtk::Label>(text);
  makeParagraph(*label);
  return label;
}

Gtk::Label* heading(const char* text) {
  auto* const label = Gtk::make_managed<Gtk::Label>(text, Gtk::Align::START);
  label->add_css_class("heading");
  return label;
}

void showFolder(const std::string& path) {
  Gio::AppInfo::launch_default_for_uri_async(Gio::File::create_for_path(path)->get_uri());
}

}  // namespace keldane
