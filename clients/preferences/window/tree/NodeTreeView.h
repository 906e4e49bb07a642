// A tree of files and folders with check boxes.
#pragma once

#include <gtkmm/columnview.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/signallistitemfactory.h>
#include <gtkmm/singleselection.h>

#include <functional>
#include <string>

#include "clients/preferences/window/tree/NodeModel.h"

namespace keldane {

/// A box shows the state that the daemon's thread reports. Ticking it asks for a change and changes nothing
/// by itself. Only visible rows have widgets.
class NodeTreeView : public Gtk::ScrolledWindow {
 public:
  /// The view's requests, each with a path.
  struct Wishes {
    std::function<void(const std::string&folder)> lookInto, close;
    std::function<void(const std::string& path, bool on)> tick;
    std::function<void(const NodeRow& row)> choose;  ///< a row was selected
  };
  struct Titles {
    const char *box, *date;
  };

  NodeTreeView(const char* name, Titles titles, Wishes wishes);

  void setTop(const TopRow& top);
  void change(const FolderChange& change) { model_.change(change); }

 private:
  using Item = Glib::RefPtr<NodeItem>;
  using Row = Glib::RefPtr<Gtk::TreeListRow>;

  void addBoxes(const char* title);
  void addNames();
  void addTexts(const char* title, float alignment, std::function<std::string(const NodeItem&)> text);
  void addColumn(const char* title, const Glib::RefPtr<Gtk::SignalListItemFactory>& factory, bool wide);
  void expansionChanged(const Row& row);
  void activated(guint place);

  const Wishes wishes_;
  NodeModel model_;
  const Glib::RefPtr<Gtk::SingleSelection> selection_;
  Gtk::ColumnView view_;
};

}  // namespace keldane
