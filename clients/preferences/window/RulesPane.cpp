#include "clients/preferences/window/RulesPane.h"

#include <gtkmm/cellrendererpixbuf.h>
#include <gtkmm/cellrenderertoggle.h>
#include <gtkmm/window.h>

#include "clients/preferences/window/Spacing.h"
#include "clients/preferences/window/Translation.h"

namespace keldane {

RulesPane::RulesPane(Wishes wishes)
    : Gtk::Box(Gtk::ORIENTATION_VERTICAL, kGap),
      wishes_(std::move(wishes)),
      heading_(Gtk::ORIENTATION_HORIZONTAL, kGap),
      explanation_(tr("What is ticked is backed up."), Gtk::ALIGN_START),
      another_(tr("Open Another Folder…")) {
  heading_.pack_start(explanation_, true, true);
  heading_.pack_end(another_, false, false);
  pack_start(heading_, false, false);
  scroller_.set_shadow_type(Gtk::SHADOW_IN);
  scroller_.add(view_);
  pack_start(scroller_, true, true);

  view_.set_model(model_.store());
  view_.set_search_column(model_.columns().name);
  view_.get_accessible()->set_name(tr("Files and folders"));
  addColumns();
  view_.signal_row_expanded().connect([this](const RulesModel::Iterator& row, const Gtk::TreeModel::Path&) {
    wishes_.lookInto((*row)[model_.columns().path]);
  });
  view_.signal_row_collapsed().connect([this](const RulesModel::Iterator& row, const Gtk::TreeModel::Path&) {
    wishes_.close((*row)[model_.columns().path]);
    model_.forget(row);
  });
  view_.signal_row_activated().connect(
      [this](const Gtk::TreeModel::Path& row, Gtk::TreeViewColumn* column) { activated(row, *column); });
  another_.signal_clicked().connect([this] { chooseFolder(); });
}

void RulesPane::setTop(const TopRow& top) {
  model_.setTop(top);
  if (const auto place = model_.top(); place && top.fresh) {
    view_.expand_row(*place, false);
  }
}

void RulesPane::addColumns() {
  const RulesModel::Columns& columns = model_.columns();
  auto* const box = Gtk::make_managed<Gtk::CellRendererToggle>();
  boxes_.set_title(tr("Back Up"));
  boxes_.pack_start(*box, false);
  boxes_.add_attribute(box->property_active(), columns.checked);
  boxes_.add_attribute(box->property_inconsistent(), columns.partly);
  boxes_.add_attribute(box->property_activatable(), columns.enabled);
  boxes_.add_attribute(box->property_sensitive(), columns.enabled);
  boxes_.add_attribute(box->property_visible(), columns.isRule);
  box->signal_toggled().connect([this](const Glib::ustring& row) { tick(Gtk::TreeModel::Path(row)); });
  view_.append_column(boxes_);

  auto* const name = Gtk::make_managed<Gtk::TreeViewColumn>(tr("Name"));
  auto* const icon = Gtk::make_managed<Gtk::CellRendererPixbuf>();
  auto* const text = Gtk::make_managed<Gtk::CellRendererText>();
  name->pack_start(*icon, false);
  name->pack_start(*text, true);
  name->add_attribute(icon->property_icon_name(), columns.icon);
  name->add_attribute(icon->property_visible(), columns.isRule);
  name->add_attribute(text->property_text(), columns.name);
  text->property_single_paragraph_mode() = true;
  text->property_ellipsize() = Pango::ELLIPSIZE_MIDDLE;
  name->set_expand(true);
  name->set_resizable(true);
  view_.append_column(*name);
  view_.set_expander_column(*name);
  addText(tr("State"), columns.state, 0);
  addText(tr("Size"), columns.size, 1);
  addText(tr("Backed Up On"), columns.date, 0);
}

void RulesPane::addText(const char* title, const Gtk::TreeModelColumn<Glib::ustring>& column,
                        float alignment) {
  auto* const text = Gtk::make_managed<Gtk::CellRendererText>();
  auto* const shown = Gtk::make_managed<Gtk::TreeViewColumn>(title, *text);
  shown->add_attribute(text->property_text(), column);
  shown->set_resizable(true);
  text->property_xalign() = alignment;
  text->property_single_paragraph_mode() = true;
  view_.append_column(*shown);
}

// What works a box without a mouse activates its row instead.
void RulesPane::activated(const Gtk::TreeModel::Path& row, const Gtk::TreeViewColumn& column) {
  if (&column == &boxes_) {
    tick(row);
  } else if (view_.row_expanded(row)) {
    view_.collapse_row(row);
  } else {
    view_.expand_row(row, false);
  }
}

// Whether a folder is ticked partly says nothing of its own rule, which is what a tick changes.
void RulesPane::tick(const Gtk::TreeModel::Path& row) {
  const RulesModel::Iterator found = model_.store()->get_iter(row);
  if (found && (*found)[model_.columns().enabled]) {
    wishes_.setIncluded((*found)[model_.columns().path], !(*found)[model_.columns().checked]);
  }
}

void RulesPane::chooseFolder() {
  if (chooser_) {
    chooser_->present();
    return;
  }
  chooser_ = std::make_unique<Gtk::FileChooserDialog>(tr("Open Another Folder"),
                                                      Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  chooser_->set_transient_for(dynamic_cast<Gtk::Window&>(*get_toplevel()));
  chooser_->add_button(tr("_Cancel"), Gtk::RESPONSE_CANCEL);
  chooser_->add_button(tr("_Open"), Gtk::RESPONSE_OK);
  chooser_->set_default_response(Gtk::RESPONSE_OK);
  chooser_->signal_response().connect([this](int response) {
    const std::string folder = chooser_->get_filename();
    chooser_->hide();
    if (response == Gtk::RESPONSE_OK && !folder.empty()) {
      wishes_.open(folder);
    }
  });
  chooser_->show();
}

}  // namespace keldane
