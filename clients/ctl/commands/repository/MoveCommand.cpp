#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <memory>

#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/setup/Place.h"
#include "clients/ctl/terminal/Interrupt.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::chrono::milliseconds kMoveInterval{500};

std::string progressText(const PropertyList& report) {
  const std::string_view status = report["status"].string();
  if (status == "checking") {
    return tr("Checking the copy");
  }
  if (status == "switching") {
    return tr("Copying what has come meanwhile");
  }
  return filled(tr("Copying what is stored: %s of %s versions"),
                countText(report["done"].unsignedLongLongValue()),
                countText(report["all"].unsignedLongLongValue()));
}

/// Waits until the daemon has answered. The first Ctrl-C cancels the move; its end is still waited for.
void follow(const Globals& globals, const std::future<PropertyList>& answer) {
  OwnerSession session(globals);
  const Terminal terminal;
  Interrupt interrupt;
  bool cancelled = false;
  while (answer.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    if (terminal.isTerminal()) {
      std::cout << terminal.restartLine() << progressText(session.ask("moveReport:")) << std::flush;
    }
    if (interrupt.wait(kMoveInterval) && !cancelled) {
      cancelled = true;
      session.ask("cancelMove:");
    }
  }
  if (terminal.isTerminal()) {
    std::cout << terminal.restartLine() << std::flush;
  }
}

void moveRepository(const Globals& globals, const PlaceOptions& options) {
  if (!options.isGiven()) {
    throw CommandFailure(kUsage, tr("Please name the new place, or a file with it by --location-file."));
  }
  PropertyList::Entries request = options.place().request();
  const std::string former(OwnerSession(globals).ask("repository:")["location"].string());
  std::future<PropertyList> answer = std::async(std::launch::async, [&] {
    return OwnerSession(globals).askForLong("moveRepository:", std::move(request));
  });
  follow(globals, answer);
  answer.get();
  std::cout
      << filled(
             tr("The backup is kept at the new place now, with all its versions. What is at %s is left as it "
                "was."),
             printable(former))
      << '\n';
}

}  // namespace

void addMoveCommand(CLI::App& repository, Globals& globals) {
  CLI::App* command = repository.add_subcommand(
      "move", tr("Copy all that is stored to another place, check the copy, and go on there"));
  auto options = std::make_shared<PlaceOptions>();
  command->add_option(
      "LOCATION", options->location,
      tr("A folder, or sftp:user@host:folder, rest:https://host/, s3:host/bucket and others of "
         "restic"));
  options->addTo(*command);
  command->footer(tr("The first Ctrl-C cancels the move. The former place is left as it is."));
  command->callback([&globals, options] { moveRepository(globals, *options); });
}

}  // namespace keldane
