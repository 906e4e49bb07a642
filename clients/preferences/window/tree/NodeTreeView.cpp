#include "clients/preferences/window/tree/NodeTreeView.h"

#include <gtkmm/checkbutton.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/listitem.h>
#include <gtkmm/tooltip.h>
#include <gtkmm/treeexpander.h>

#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr int kLowestTree = 160;
constexpr int kNameWidth = 180, kMostTextColumns = 40;

/// A widget in a row, and the signals to which it listens while it shows an item.
template <class Widget>
struct Cell : public Widget {
  using Widget::Widget;
  Glib::RefPtr<NodeItem> item;
  sigc::connection itemChanged, other;

  void leave() {
    itemChanged.disconnect();
    other.disconnect();
    item.reset();
  }
};

struct BoxCell : public Cell<Gtk::CheckButton> {
  bool showing = false;
};

struct NameCell : public Cell<Gtk::TreeExpander> {
  Gtk::Box box;
  Gtk::Image icon;
  Gtk::Label label;
  const char* iconName = nullptr;  // as the icon shows it

  NameCell() : box(Gtk::Orientation::HORIZONTAL, kGap) {
    label.set_ellipsize(Pango::EllipsizeMode::MIDDLE);
    label.set_xalign(0);
    box.append(icon);
    box.append(label);
    set_child(box);
    // The path is handed over when it is asked for, because setting it in each row slows scrolling.
    label.set_has_tooltip(true);
    label.signal_query_tooltip().connect(
        [this](int, int, bool, const Glib::RefPtr<Gtk::Tooltip>& tooltip) {
          tooltip->set_text(item ? item->row.path : std::string());
          return item != nullptr;
        },
        false);
  }
};

Glib::RefPtr<Gtk::TreeListRow> rowOf(const Glib::RefPtr<Gtk::ListItem>& listItem) {
  return std::dynamic_pointer_cast<Gtk::TreeListRow>(listItem->get_item());
}

Glib::RefPtr<NodeItem> itemOf(const Glib::RefPtr<Gtk::TreeListRow>& row) {
  return row ? std::dynamic_pointer_cast<NodeItem>(row->get_item()) : nullptr;
}

/// A factory whose cells are made by `make`, and filled when they get an item and whenever it changes.
template <class CellType>
Glib::RefPtr<Gtk::SignalListItemFactory> factoryOf(
    std::function<CellType*()> make, std::function<void(CellType&)> fill,
    std::function<void(CellType&, const Glib::RefPtr<Gtk::TreeListRow>&)> bound = {}) {
  const auto factory = Gtk::SignalListItemFactory::create();
  factory->signal_setup().connect(
      [make = std::move(make)](const Glib::RefPtr<Gtk::ListItem>& item) { item->set_child(*make()); });
  factory->signal_bind().connect([fill, bound](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    auto* const cell = dynamic_cast<CellType*>(listItem->get_child());
    const Glib::RefPtr<Gtk::TreeListRow> row = rowOf(listItem);
    if (cell == nullptr || !itemOf(row)) {
      return;
    }
    cell->item = itemOf(row);
    cell->itemChanged = cell->item->changed.connect([cell, fill] { fill(*cell); });
    if (bound) {
      bound(*cell, row);
    }
    fill(*cell);
  });
  factory->signal_unbind().connect([](const Glib::RefPtr<Gtk::ListItem>& listItem) {
    if (auto* const cell = dynamic_cast<CellType*>(listItem->get_child())) {
      cell->leave();
    }
  });
  return factory;
}

// The state is told in words, too, because not everybody sees how a box is drawn.
std::string stateOf(const NodeItem& item) {
  return item.row.checked && item.row.partly ? filled(tr("%s, not all of it"), item.row.state)
                                             : item.row.state;
}

void fillBox(BoxCell& cell) {
  cell.showing = true;
  cell.set_visible(cell.item->kind == NodeItem::Kind::node);
  cell.set_active(cell.item->row.checked);
  cell.set_inconsistent(cell.item->row.partly && !cell.item->row.checked);
  cell.set_sensitive(cell.item->row.enabled);
  setAccessibleName(cell, cell.item->title);
  cell.showing = false;
}

void fillName(NameCell& cell) {
  cell.label.set_text(cell.item->title);
  cell.icon.set_visible(cell.item->kind == NodeItem::Kind::node);
  // A row that scrolls into view usually shows the same icon as before, and the toolkit would draw it anew.
  const char* const iconName = cell.item->row.isFolder ? "folder" : "text-x-generic";
  if (cell.iconName != iconName) {
    cell.iconName = iconName;
    cell.icon.set_from_icon_name(iconName);
  }
  if (cell.item->row.isGone) {
    cell.label.add_css_class("dim-label");
  } else {
    cell.label.remove_css_class("dim-label");
  }
}

}  // namespace

NodeTreeView::NodeTreeView(const char* name, Titles titles, Wishes wishes)
    : wishes_(std::move(wishes)), selection_(Gtk::SingleSelection::create(model_.list())), view_(selection_) {
  set_child(view_);
  set_has_frame(true);
  set_min_content_height(kLowestTree);
  set_expand(true);
  selection_->set_autoselect(false);
  selection_->set_can_unselect(true);
  selection_->unselect_all();
  setAccessibleName(view_, name);
  addBoxes(titles.box);
  addNames();
  addTexts(tr("State"), 0, stateOf);
  addTexts(tr("Size"), 1, [](const NodeItem& item) { return item.row.size; });
  addTexts(titles.date, 0, [](const NodeItem& item) { return item.row.date; });
  view_.signal_activate().connect([this](guint place) { activated(place); });
  selection_->property_selected().signal_changed().connect([this] {
    const Item item = itemOf(model_.list()->get_row(selection_->get_selected()));
    if (item && item->kind == NodeItem::Kind::node && wishes_.choose) {
      wishes_.choose(item->row);
    }
  });
}

void NodeTreeView::setTop(const TopRow& top) {
  model_.setTop(top);
  if (top.fresh) {
    const Row row = model_.list()->get_row(0);
    if (row && row->is_expandable()) {
      row->set_expanded(true);
      wishes_.lookInto(top.row.path);
    }
  }
}

void NodeTreeView::addColumn(const char* title, const Glib::RefPtr<Gtk::SignalListItemFactory>& factory,
                             bool wide) {
  const auto column = Gtk::ColumnViewColumn::create(title, factory);
  column->set_expand(wide);
  column->set_resizable(true);
  view_.append_column(column);
}

void NodeTreeView::addBoxes(const char* title) {
  addColumn(title,
            factoryOf<BoxCell>(
                [this] {
                  auto* const cell = Gtk::make_managed<BoxCell>();
                  cell->set_halign(Gtk::Align::CENTER);
                  // A tick is shown only once the daemon has confirmed it.
                  cell->signal_toggled().connect([this, cell] {
                    if (cell->showing || !cell->item) {
                      return;
                    }
                    const NodeRow row = cell->item->row;
                    fillBox(*cell);
                    wishes_.tick(row.path, !row.checked);
                  });
                  return cell;
                },
                fillBox),
            false);
}

void NodeTreeView::addNames() {
  addColumn(tr("Name"),
            factoryOf<NameCell>(
                [] {
                  auto* const cell = Gtk::make_managed<NameCell>();
                  cell->set_size_request(kNameWidth, -1);
                  return cell;
                },
                fillName,
                [this](NameCell& cell, const Row& row) {
                  cell.set_list_row(row);
                  cell.other = row->property_expanded().signal_changed().connect(
                      [this, &cell] { expansionChanged(cell.get_list_row()); });
                }),
            true);
}

void NodeTreeView::addTexts(const char* title, float alignment,
                            std::function<std::string(const NodeItem&)> text) {
  addColumn(title,
            factoryOf<Cell<Gtk::Label>>(
                [alignment] {
                  auto* const cell = Gtk::make_managed<Cell<Gtk::Label>>();
                  cell->set_xalign(alignment);
                  cell->set_ellipsize(Pango::EllipsizeMode::END);
                  cell->set_max_width_chars(kMostTextColumns);
                  return cell;
                },
                [text = std::move(text)](Cell<Gtk::Label>& cell) { cell.set_text(text(*cell.item)); }),
            false);
}

// Newer toolkits announce a change for every row that is removed. Such a row can no longer be expanded.
void NodeTreeView::expansionChanged(const Row& row) {
  const Item item = itemOf(row);
  if (!item || !row->is_expandable()) {
    return;
  }
  if (row->get_expanded()) {
    wishes_.lookInto(item->row.path);
  } else {
    wishes_.close(item->row.path);
    model_.forget(item);
  }
}

void NodeTreeView::activated(guint place) {
  const Row row = model_.list()->get_row(place);
  if (row && row->is_expandable()) {
    row->set_expanded(!row->get_expanded());
  }
}

}  // namespace keldane
