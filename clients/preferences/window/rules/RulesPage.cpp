#include "clients/preferences/window/rules/RulesPage.h"

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

RulesPage::RulesPage(DaemonDesk& desk)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      heading_(Gtk::Orientation::HORIZONTAL, kGap),
      explanation_(tr("What is ticked is backed up.")),
      another_(tr("Open Another Folder…")),
      chooser_(tr("Open Another Folder"), Gtk::FileChooser::Action::SELECT_FOLDER,
               [this](const std::string& path) {
                 desk_.perform([path](DaemonSession& session) { session.openFolder(path); });
               }),
      tree_(tr("Files and folders"), {tr("Back Up"), tr("Backed Up On")},
            {
                [this](const std::string& folder) {
                  desk_.perform([folder](DaemonSession& session) { session.lookInto(folder); });
                },
                [this](const std::string& folder) {
                  desk_.perform([folder](DaemonSession& session) { session.closeFolder(folder); });
                },
                [this](const std::string& path, bool on) {
                  desk_.perform([path, on](DaemonSession& session) { session.setIncluded(path, on); });
                  explain(path);
                },
                [this](const NodeRow& row) { explain(row.path); },
            }),
      pattern_(desk) {
  setMargin(*this, 2 * kGap);
  makeParagraph(explanation_);
  heading_.append(explanation_);
  heading_.append(another_);
  append(heading_);
  append(tree_);
  whyTitle_.add_css_class("heading");
  makeParagraph(whyTitle_);
  makeParagraph(why_);
  append(whyTitle_);
  append(why_);
  append(pattern_);
  say({}, tr("Select a file or folder to see why it is backed up or not."));
  another_.signal_clicked().connect([this] { chooser_.open(*this); });
}

void RulesPage::say(const std::string& path, const std::string& text) {
  whyTitle_.set_visible(!path.empty());
  whyTitle_.set_text(filled(tr("Why: %s"), printable(path)));
  why_.set_text(text);
}

void RulesPage::explain(const std::string& path) {
  explained_ = path;
  desk_.perform([path](DaemonSession& session) { session.askAbout(path); });
}

void RulesPage::show(const PathAnswer& answer) {
  if (answer.path != explained_) {
    return;
  }
  const PropertyList reasons = answer.node["reasons"];
  if (reasons.count() == 0) {
    say(answer.path, answer.node ? tr("The daemon does not tell why.")
                                 : tr("The daemon knows nothing of it, or may not tell you."));
    return;
  }
  std::string text = printable(daemonText(reasons[std::size_t{0}]["text"].string()));
  for (std::size_t i = 1; i < reasons.count(); ++i) {
    text += '\n' + filled(tr("This outranks: %s"), printable(daemonText(reasons[i]["text"].string())));
  }
  say(answer.path, text);
}

}  // namespace keldane
