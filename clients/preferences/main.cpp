// keldane-preferences: the backup daemon of this computer, administered in a window.
#include <gtkmm/application.h>
#include <gtkmm/messagedialog.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "clients/core/DaemonBundle.h"
#include "clients/preferences/window/PreferencesWindow.h"
#include "clients/preferences/window/Translation.h"

namespace keldane {

namespace {

constexpr int kUsage = 2, kUnreachable = 3;
constexpr char kApplication[] = "com.keldane.preferences";

/// What the arguments ask for; an exit status when that is all.
std::optional<int> readArguments(int argc, char** argv, std::string& bundle) {
  CLI::App app(tr("Shows what the backup daemon of this computer does and what it backs up, and changes it."),
               "keldane-preferences");
  app.set_version_flag("--version", "keldane-preferences " KELDANE_VERSION);
  app.add_option("--bundle", bundle,
                 tr("The plug-in bundle that says where the daemon is; else the first that is installed"))
      ->type_name("DIR");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    app.exit(error);
    return kUsage;
  }
  return std::nullopt;
}

void tellOfNoBundle(const NoDaemonBundle& nothing) {
  std::cerr << "keldane-preferences: " << nothing.what() << std::endl;
  Gtk::MessageDialog dialog(tr("Nothing says where the backup daemon is."), false, Gtk::MESSAGE_ERROR);
  dialog.set_title(tr("Keldane Preferences"));
  dialog.set_secondary_text(nothing.what());
  dialog.run();
}

int run(int argc, char** argv) {
  beginTranslation();
  std::string bundlePath;
  if (const std::optional<int> status = readArguments(argc, argv, bundlePath)) {
    return *status;
  }
  // A window onto another daemon is no second window onto the same.
  const auto app = Gtk::Application::create(
      kApplication, bundlePath.empty() ? Gio::APPLICATION_FLAGS_NONE : Gio::APPLICATION_NON_UNIQUE);
  std::unique_ptr<PreferencesWindow> window;
  int status = EXIT_SUCCESS;
  app->signal_activate().connect([&] {
    try {
      if (!window) {
        window = std::make_unique<PreferencesWindow>(findDaemonBundle(bundlePath).bundle);
        app->add_window(*window);
      }
      window->present();
    } catch (const NoDaemonBundle& nothing) {
      tellOfNoBundle(nothing);
      status = kUnreachable;
    }
  });
  const int ran = app->run();
  if (window && !window->end()) {
    std::_Exit(status);  // a thread that waits for the daemon cannot be ended
  }
  return status == EXIT_SUCCESS ? ran : status;
}

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) { return keldane::run(argc, argv); }
