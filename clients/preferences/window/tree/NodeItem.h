// A row of a tree as the toolkit's lists hold it.
#pragma once

#include <giomm/liststore.h>
#include <glibmm/object.h>
#include <sigc++/signal.h>

#include <string>

#include "clients/preferences/worker/tree/NodeRow.h"

namespace keldane {

/// The text shown for one file or folder. Used on the window's thread.
class NodeItem : public Glib::Object {
 public:
  enum class Kind { node, asking, empty };

  static Glib::RefPtr<NodeItem> create(Kind kind) {
    return Glib::make_refptr_for_instance(new NodeItem(kind));
  }

  const Kind kind;
  NodeRow row;
  std::string title;  ///< shown instead of the name
  /// The rows of a folder; null for anything else. A folder whose content was not loaded holds one row of the
  /// kind `asking`.
  Glib::RefPtr<Gio::ListStore<NodeItem>> children;
  sigc::signal<void()> changed;

 private:
  explicit NodeItem(Kind itsKind) : kind(itsKind) {}
};

}  // namespace keldane
