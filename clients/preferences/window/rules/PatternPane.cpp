#include "clients/preferences/window/rules/PatternPane.h"

#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr std::uint32_t kMostPreviewed = 5;

}  // namespace

PatternPane::PatternPane(DaemonDesk& desk)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      line_(Gtk::Orientation::HORIZONTAL, kGap),
      preview_(tr("Show What That Is")),
      leaveOut_(tr("Leave It Out")) {
  setTitle(title_, tr("Leave out"));
  pattern_.set_hexpand(true);
  pattern_.set_placeholder_text(tr("*.iso, node_modules/, ~/Videos/*.tmp"));
  setAccessibleName(pattern_, tr("Pattern of what is to be left out"));
  pattern_.signal_changed().connect(
      [this] { leaveOut_.set_sensitive(std::string(pattern_.get_text()) == previewed_); });
  pattern_.signal_activate().connect([this] { preview(); });
  preview_.signal_clicked().connect([this] { preview(); });
  leaveOut_.set_sensitive(false);
  leaveOut_.signal_clicked().connect([this] { leaveOut(); });
  for (Gtk::Widget* widget : std::initializer_list<Gtk::Widget*>{&title_, &pattern_, &preview_, &leaveOut_}) {
    line_.append(*widget);
  }
  append(line_);
  makeParagraph(found_);
  found_.set_visible(false);
  append(found_);
}

void PatternPane::preview() {
  const std::string pattern = pattern_.get_text();
  if (pattern.empty() || pattern.starts_with('#') || pattern.starts_with('@')) {
    found_.set_visible(true);
    found_.set_text(
        tr("A pattern is a name or a path with *, ? and [a-z] in it; with a slash at its end it is "
           "for folders alone."));
    return;
  }
  desk_.ask("previewPattern:", {{"pattern", pattern}, {"most", kMostPreviewed}},
            [this, pattern](const OwnerAnswer& answer) { show(answer, pattern); });
}

void PatternPane::show(const OwnerAnswer& answer, const std::string& pattern) {
  found_.set_visible(true);
  if (!answer) {
    found_.set_text(problemOf(answer));
    return;
  }
  const std::uint64_t count = answer.values["count"].unsignedLongLongValue();
  const PropertyList entries = answer.values["entries"];
  std::string text = count == 0
                         ? filled(tr("Nothing that is in the backup now fits %s."), printable(pattern))
                         : filled(tr("%s would leave out %s, %s:"), printable(pattern), filesWords(count),
                                  bytesText(answer.values["bytes"].unsignedLongLongValue()));
  for (std::size_t i = 0; i < entries.count(); ++i) {
    text += '\n' + printable(entries[i].string());
  }
  if (count > entries.count()) {
    text += '\n' + filled(tr("… and %s more."), countText(count - entries.count()));
  }
  found_.set_text(text);
  previewed_ = pattern;
  leaveOut_.set_sensitive(std::string(pattern_.get_text()) == previewed_);
}

void PatternPane::leaveOut() {
  desk_.perform([pattern = previewed_](DaemonSession& session) { session.leaveOut(pattern); });
  found_.set_text(tr("What fits is left out from now on; what is stored of it stays in the backup."));
  pattern_.set_text({});
}

}  // namespace keldane
