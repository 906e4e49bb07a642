#include "clients/preferences/window/restore/EntryList.h"

#include <glibmm/object.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/label.h>
#include <gtkmm/listitem.h>
#include <gtkmm/noselection.h>

#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

class EntryList::Item : public Glib::Object {
 public:
  static Glib::RefPtr<Item> create(StoredEntry entry) {
    return Glib::make_refptr_for_instance(new Item(std::move(entry)));
  }
  const StoredEntry entry;
  bool ticked = false;

 private:
  explicit Item(StoredEntry its) : entry(std::move(its)) {}
};

EntryList::EntryList(const char* name, const char* firstTitle, std::function<void()> selectionChanged)
    : selectionChanged_(std::move(selectionChanged)),
      items_(Items::create()),
      view_(Gtk::NoSelection::create(items_)) {
  set_child(view_);
  set_has_frame(true);
  set_expand(true);
  setAccessibleName(view_, name);
  addBoxes();
  addTexts(firstTitle, &StoredEntry::title, true, 0);
  addTexts(tr("State"), &StoredEntry::state, false, 0);
  addTexts(tr("Size"), &StoredEntry::size, false, 1);
  addTexts(tr("Backed Up On"), &StoredEntry::date, false, 0);
}

void EntryList::addBoxes() {
  const auto factory = Gtk::SignalListItemFactory::create();
  factory->signal_setup().connect([](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    auto* const box = Gtk::make_managed<Gtk::CheckButton>();
    box->set_halign(Gtk::Align::CENTER);
    listItem->set_child(*box);
  });
  factory->signal_bind().connect([this](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    auto* const box = dynamic_cast<Gtk::CheckButton*>(listItem->get_child());
    const auto item = std::dynamic_pointer_cast<Item>(listItem->get_item());
    setAccessibleName(*box, item->entry.title);
    box->set_active(item->ticked);
    const sigc::connection toggled = box->signal_toggled().connect([this, box, item] {
      item->ticked = box->get_active();
      selectionChanged_();
    });
    box->set_data("keldane-toggled", new sigc::connection(toggled),
                  [](void* data) { delete static_cast<sigc::connection*>(data); });
  });
  factory->signal_unbind().connect([](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    auto* const box = listItem->get_child();
    static_cast<sigc::connection*>(box->get_data("keldane-toggled"))->disconnect();
  });
  const auto column = Gtk::ColumnViewColumn::create(tr("Restore"), factory);
  view_.append_column(column);
}

void EntryList::addTexts(const char* title, std::string StoredEntry::*text, bool wide, float alignment) {
  const auto factory = Gtk::SignalListItemFactory::create();
  factory->signal_setup().connect([alignment](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    auto* const label = Gtk::make_managed<Gtk::Label>();
    label->set_xalign(alignment);
    label->set_ellipsize(Pango::EllipsizeMode::MIDDLE);
    listItem->set_child(*label);
  });
  factory->signal_bind().connect([text](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    const auto item = std::dynamic_pointer_cast<Item>(listItem->get_item());
    auto* const label = dynamic_cast<Gtk::Label*>(listItem->get_child());
    label->set_text(item->entry.*text);
    label->set_tooltip_text(item->entry.*text);
  });
  const auto column = Gtk::ColumnViewColumn::create(title, factory);
  column->set_expand(wide);
  column->set_resizable(true);
  view_.append_column(column);
}

void EntryList::show(std::vector<StoredEntry> entries) {
  std::vector<Glib::RefPtr<Item>> items;
  items.reserve(entries.size());
  for (StoredEntry& entry : entries) {
    items.push_back(Item::create(std::move(entry)));
  }
  items_->splice(0, items_->get_n_items(), items);
  selectionChanged_();
}

std::vector<StoredEntry> EntryList::selected() const {
  std::vector<StoredEntry> found;
  for (guint i = 0; i < items_->get_n_items(); ++i) {
    if (const auto item = items_->get_item(i); item->ticked) {
      found.push_back(item->entry);
    }
  }
  return found;
}

}  // namespace keldane
