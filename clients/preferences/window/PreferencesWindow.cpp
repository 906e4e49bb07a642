#include "clients/preferences/window/PreferencesWindow.h"

#include <glibmm/main.h>
#include <glibmm/miscutils.h>

#include "clients/core/Printable.h"
#include "clients/preferences/window/Spacing.h"
#include "clients/preferences/window/Translation.h"

namespace keldane {

namespace {

constexpr int kWidth = 780, kHeight = 680;
constexpr unsigned kWatchInterval = 1;                // seconds
constexpr auto kPatience = std::chrono::seconds(10);  // with a daemon that does not answer
constexpr auto kFarewell = std::chrono::seconds(1);

}  // namespace

PreferencesWindow::PreferencesWindow(std::shared_ptr<Bundle> bundle)
    : mailbox_(std::make_shared<Mailbox>([this](const Update& update) { receive(update); })),
      daemon_(std::move(bundle), [mailbox = mailbox_](Update update) { mailbox->put(std::move(update)); }),
      content_(Gtk::ORIENTATION_VERTICAL, 2 * kGap),
      statusPane_({
          [this](std::int32_t minutes) {
            daemon_.perform([minutes](DaemonSession& session) { session.pause(minutes); });
          },
          [this](bool on) { daemon_.perform([on](DaemonSession& session) { session.setAutomatic(on); }); },
          [this](bool on) { daemon_.perform([on](DaemonSession& session) { session.setLowPriority(on); }); },
      }),
      rules_({
          [this](const std::string& folder) {
            daemon_.perform([folder](DaemonSession& session) { session.openFolder(folder); });
          },
          [this](const std::string& folder) {
            daemon_.perform([folder](DaemonSession& session) { session.lookInto(folder); });
          },
          [this](const std::string& folder) {
            daemon_.perform([folder](DaemonSession& session) { session.closeFolder(folder); });
          },
          [this](const std::string& path, bool included) {
            daemon_.perform(
                [path, included](DaemonSession& session) { session.setIncluded(path, included); });
          },
      }) {
  set_title(tr("Keldane Preferences"));
  set_icon_name("keldane");
  set_default_size(kWidth, kHeight);
  set_border_width(2 * kGap);
  refusal_.set_message_type(Gtk::MESSAGE_WARNING);
  refusal_.set_show_close_button(true);
  refusal_.signal_response().connect([this](int) { refusal_.hide(); });
  refusalText_.set_line_wrap(true);
  refusalText_.set_xalign(0);
  dynamic_cast<Gtk::Container&>(*refusal_.get_content_area()).add(refusalText_);
  content_.pack_start(refusal_, false, false);
  content_.pack_start(statusPane_, false, false);
  content_.pack_start(separator_, false, false);
  content_.pack_start(rules_, true, true);
  add(content_);
  show_all_children();
  refusal_.hide();
  showStatus();
  watch_ = Glib::signal_timeout().connect_seconds(
      [this] {
        watchDaemon();
        return true;
      },
      kWatchInterval);
  daemon_.perform([home = Glib::get_home_dir()](DaemonSession& session) { session.openFolder(home); });
}

PreferencesWindow::~PreferencesWindow() { watch_.disconnect(); }

bool PreferencesWindow::end() { return daemon_.end(kFarewell); }

void PreferencesWindow::receive(const Update& update) {
  std::visit([this](const auto& each) { receive(each); }, update);
}

void PreferencesWindow::receive(const StatusSnapshot& snapshot) {
  status_ = snapshot;
  showStatus();
}

void PreferencesWindow::receive(const Refusal& refusal) {
  refusalText_.set_text(
      refusal.path.empty()
          ? tr("The daemon did not take it: only root and the daemon's own user may change this.")
          : filled(
                tr("The daemon did not take %s: %s."), printable(refusal.path),
                refusal.state.empty() ? tr("it knows nothing of it, or may not tell you") : refusal.state));
  refusal_.show();
}

void PreferencesWindow::watchDaemon() {
  const bool answers = daemon_.silence() < kPatience;
  if (answers != answers_) {
    answers_ = answers;
    showStatus();
  }
}

void PreferencesWindow::showStatus() {
  rules_.set_sensitive(answers_ && status_ && status_->connected);
  if (!answers_) {
    statusPane_.say(tr("The backup daemon does not answer."));
  } else if (!status_) {
    statusPane_.say(tr("Looking for the backup daemon…"));
  } else {
    statusPane_.show(*status_);
  }
}

}  // namespace keldane
