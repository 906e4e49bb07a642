// keldanectl: the backup daemon of this computer, administered from a command line.
#include <iostream>

#include "cli/NumberRange.h"
#include "clients/ctl/commandline/HelpText.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

int run(int argc, char** argv) {
  Globals globals;
  CLI::App app(
      tr("Administers the backup daemon of this computer.\n\n"
         "Exit status: 0 done, 1 the daemon did not take it or knows nothing of it, 2 usage, 3 the daemon "
         "cannot be\nreached, 4 it did not answer in time, 5 what waits is not backed up until somebody sees "
         "to "
         "it."),
      "keldanectl");
  setHelpWords(app);
  app.get_formatter()->column_width(28);
  app.set_version_flag("--version", "keldanectl " KELDANE_VERSION,
                       tr("Display program version information and exit"));
  app.add_option("--bundle", globals.bundle,
                 tr("The plug-in bundle that says where the daemon is; else the first that is installed"))
      ->type_name("DIR");
  app.add_option("--deadline", globals.deadline,
                 tr("Give up when the daemon has not answered for this time; 0 waits for ever (30)"))
      ->type_name("SECONDS")
      ->check(numberFrom(0, kLongestDeadline));
  app.require_subcommand(1);
  app.fallthrough();
  addStatusCommand(app, globals);
  addWatchCommand(app, globals);
  addSetupCommand(app, globals);
  addStoredCommands(app, globals);
  addWhyCommand(app, globals);
  addRestoreCommand(app, globals);
  addRepositoryCommands(app, globals);
  addKeyCommands(app, globals);
  addRecoverCommand(app, globals);
  addSettingCommands(app, globals);
  addRuleCommands(app, globals);
  addTypeCommand(app, globals);
  addListCommands(app, globals);
  addSelectCommand(app, globals);
  addServiceCommands(app, globals);
  addAdministrationCommands(app, globals);
  addCompletionCommand(app);
  setGroupWords(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    complain(filled(tr("%s (keldanectl --help tells more)"), parseErrorText(error)));
    return kUsage;
  }
  std::cout.flush();
  return std::cout ? globals.status : kNotTaken;
}

}  // namespace

}  // namespace keldane

int main(int argc, char** argv) {
  keldane::beginTranslation();
  try {
    return keldane::run(argc, argv);
  } catch (const keldane::CommandFailure& failure) {
    std::cout.flush();
    keldane::complain(failure.what());
    return failure.status();
  } catch (const std::exception& error) {
    std::cout.flush();
    keldane::complain(error.what());
    return keldane::kNotTaken;
  }
}
