// keldane-preferences: the backup daemon of this computer, administered in a window.
#include <giomm/notification.h>
#include <glibmm/init.h>
#include <gtk/gtk.h>
#include <gtkmm/application.h>
#include <gtkmm/messagedialog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clients/core/DaemonBundle.h"
#include "clients/core/FolderTree.h"
#include "clients/preferences/window/Lookout.h"
#include "clients/preferences/window/PreferencesWindow.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr int kUsage = 2, kUnreachable = 3;
constexpr char kApplication[] = "com.keldane.preferences", kShow[] = "show";

struct Options {
  std::string bundle, page, restore, restoreMissing;
  bool background = false;

  /// The place in the window that the options name; absent when they name none.
  std::optional<WindowPlace> place() const {
    if (!restore.empty()) {
      return WindowPlace{WindowPlace::Kind::versions, restore};
    }
    if (!restoreMissing.empty()) {
      return WindowPlace{WindowPlace::Kind::missing, restoreMissing};
    }
    for (const auto& [name, kind] : kPages) {
      if (page == name) {
        return WindowPlace{kind, {}};
      }
    }
    return std::nullopt;
  }

  static constexpr std::pair<const char*, WindowPlace::Kind> kPages[] = {
      {"overview", WindowPlace::Kind::overview},
      {"restore", WindowPlace::Kind::restore},
      {"storage", WindowPlace::Kind::storage},
      {"rules", WindowPlace::Kind::rules},
      {"setup", WindowPlace::Kind::setUp}};
};

void addOptions(CLI::App& app, Options& options) {
  app.set_version_flag("--version", "keldane-preferences " KELDANE_VERSION);
  app.add_option("--bundle", options.bundle,
                 tr("The plug-in bundle that says where the daemon is; else the first that is installed"))
      ->type_name("DIR");
  std::vector<std::string> pages;
  for (const auto& [name, kind] : Options::kPages) {
    pages.emplace_back(name);
  }
  app.add_flag("--background", options.background,
               tr("Show no window, and tell by notifications what a person must know"));
  CLI::Option* const page = app.add_option("--page", options.page, tr("Show this page"))
                                ->type_name("PAGE")
                                ->check(CLI::IsMember(pages));
  CLI::Option* const restore = app.add_option("--restore", options.restore,
                                              tr("Show the versions of this file that are in the backup"))
                                   ->type_name("PATH")
                                   ->excludes(page);
  app.add_option("--restore-missing", options.restoreMissing,
                 tr("Show what was deleted from this folder and is in the backup"))
      ->type_name("FOLDER")
      ->excludes(page)
      ->excludes(restore);
}

/// Reads what the arguments ask for. Returns an exit status when the program is to end at once.
std::optional<int> readArguments(int argc, char** argv, Options& options) {
  CLI::App app(tr("Shows what the backup daemon of this computer does and what it backs up, changes it, and "
                  "restores from the backup."),
               "keldane-preferences");
  addOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    app.exit(error);
    return kUsage;
  }
  for (std::string* path : {&options.restore, &options.restoreMissing}) {
    *path = path->empty() ? std::string() : pathNamed(*path);
  }
  return std::nullopt;
}

/// The arguments as they are sent to the program that runs already, which may be in another folder.
std::vector<std::string> wordsFor(const Options& options) {
  std::vector<std::string> words = {"keldane-preferences"};
  const auto add = [&](const char* name, const std::string& value) {
    if (!value.empty()) {
      words.push_back(std::string(name) + '=' + value);
    }
  };
  add("--page", options.page);
  add("--restore", options.restore);
  add("--restore-missing", options.restoreMissing);
  if (options.background) {
    words.emplace_back("--background");
  }
  return words;
}

/// The program as the desktop sees it: one window, to which later calls lead.
class Program {
 public:
  explicit Program(const Options& options)
      : options_(options),
        // A window for another daemon is a separate program, not a second window of this one.
        app_(Gtk::Application::create(kApplication, options.bundle.empty()
                                                        ? Gio::Application::Flags::HANDLES_COMMAND_LINE
                                                        : Gio::Application::Flags::HANDLES_COMMAND_LINE |
                                                              Gio::Application::Flags::NON_UNIQUE)) {
    app_->signal_command_line().connect(
        [this](const Glib::RefPtr<Gio::ApplicationCommandLine>& line) { return open(line); }, false);
    app_->signal_activate().connect([this] { present(std::nullopt); });
    // A notification leads to this action.
    app_->add_action_with_parameter(kShow, Glib::VARIANT_TYPE_STRING, [this](const Glib::VariantBase& page) {
      Options wanted;
      wanted.page = Glib::VariantBase::cast_dynamic<Glib::Variant<Glib::ustring>>(page).get();
      present(wanted.place());
    });
  }

  int run() {
    std::vector<std::string> words = wordsFor(options_);
    std::vector<char*> pointers;
    pointers.reserve(words.size());
    for (std::string& word : words) {
      pointers.push_back(word.data());
    }
    const int ran = app_->run(static_cast<int>(pointers.size()), pointers.data());
    if ((window_ && !window_->end()) || (lookout_ && !lookout_->end())) {
      std::_Exit(status_);  // a thread that waits for the daemon cannot be ended
    }
    return status_ == EXIT_SUCCESS ? ran : status_;
  }

 private:
  int open(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) {
    int count = 0;
    char** const words = line->get_arguments(count);
    Options options;
    const std::optional<int> status = readArguments(count, words, options);
    g_strfreev(words);
    if (!status && options.background) {
      watch();
    } else if (!status) {
      present(options.place());
    }
    return status.value_or(EXIT_SUCCESS);
  }

  void present(const std::optional<WindowPlace>& place) {
    try {
      if (!window_) {
        makeWindow();
      }
      app_->add_window(*window_);
      letGo();
      if (place) {
        window_->go(*place);
      }
      window_->present();
    } catch (const NoDaemonBundle& nothing) {
      tellOfNoBundle(nothing);
    }
  }

  /// The desktop session starts this by itself, so no window tells the person when nothing is installed.
  void watch() {
    if (watches_) {
      return;
    }
    try {
      if (!window_) {
        lookout_ = std::make_unique<Lookout>(findDaemonBundle(options_.bundle), alerts_, teller());
      }
      watches_ = true;
      app_->hold();
    } catch (const NoDaemonBundle& nothing) {
      std::cerr << "keldane-preferences: " << nothing.what() << std::endl;
      status_ = kUnreachable;
    }
  }

  TellPerson teller() {
    return [this](AlertKind kind, const std::string& subject, const std::string& sentence,
                  WindowPlace::Kind place) { tell(kind, subject, sentence, place); };
  }

  void makeWindow() {
    const DaemonBundle daemon = findDaemonBundle(options_.bundle);
    if (lookout_ && !lookout_->end()) {
      beginAnew();
    }
    lookout_.reset();
    window_ = std::make_unique<PreferencesWindow>(daemon, alerts_, teller());
    window_->set_hide_on_close(true);
    // The program ends with its window, unless there is a restore whose end is to be told.
    window_->signal_hide().connect([this] {
      if (!held_ && window_->isRestoring()) {
        held_ = true;
        app_->hold();
      }
    });
  }

  /// The thread that follows a hung daemon hangs, too, and no second thread can follow one in this process.
  static void beginAnew() {
    execl("/proc/self/exe", "keldane-preferences", nullptr);
    std::_Exit(EXIT_FAILURE);
  }

  void tell(AlertKind what, const std::string& subject, const std::string& sentence, WindowPlace::Kind kind) {
    if (alerts_.mayTell(what, subject)) {
      notify(what == AlertKind::restore ? tr("Restore") : tr("The backup needs you"), sentence, kind);
    }
    if (window_ && !window_->get_visible()) {
      letGo();
    }
  }

  void notify(const char* title, const std::string& sentence, WindowPlace::Kind kind) {
    const auto notification = Gio::Notification::create(title);
    notification->set_body(sentence);
    for (const auto& [name, each] : Options::kPages) {
      if (each == kind) {
        notification->set_default_action(std::string("app.") + kShow, Glib::ustring(name));
      }
    }
    app_->send_notification(title, notification);
  }

  void letGo() {
    if (held_) {
      held_ = false;
      app_->release();
    }
  }

  void tellOfNoBundle(const NoDaemonBundle& nothing) {
    std::cerr << "keldane-preferences: " << nothing.what() << std::endl;
    status_ = kUnreachable;
    message_ = std::make_unique<Gtk::MessageDialog>(tr("Nothing says where the backup daemon is."), false,
                                                    Gtk::MessageType::ERROR);
    message_->set_title(tr("Keldane Preferences"));
    message_->set_secondary_text(nothing.what());
    message_->set_hide_on_close(true);
    message_->signal_response().connect([this](int) { message_->hide(); });
    app_->add_window(*message_);
    message_->present();
  }

  const Options options_;
  const Glib::RefPtr<Gtk::Application> app_;
  AlertKeeper alerts_;
  std::unique_ptr<Lookout> lookout_;  // only until there is a window
  std::unique_ptr<PreferencesWindow> window_;
  std::unique_ptr<Gtk::MessageDialog> message_;
  int status_ = EXIT_SUCCESS;
  bool held_ = false;     // whether the program goes on without a window for a restore
  bool watches_ = false;  // whether it goes on without a window anyway
};

int run(int argc, char** argv) {
  // The toolkit would try again and print a warning.
  gtk_disable_setlocale();
  Glib::set_init_to_users_preferred_locale(false);
  std::setlocale(LC_ALL, "");  // the next line takes care of anything that the locale lacks
  beginTranslation(kPreferencesCatalogue);
  Options options;
  if (const std::optional<int> status = readArguments(argc, argv, options)) {
    return *status;
  }
  return Program(options).run();
}

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) { return keldane::run(argc, argv); }
