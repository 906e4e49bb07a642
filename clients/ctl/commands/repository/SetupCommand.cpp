#include <iostream>

#include "clients/core/words/HealthText.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/setup/Place.h"
#include "clients/ctl/setup/SecretFile.h"
#include "clients/ctl/setup/SetupWizard.h"
#include "clients/ctl/terminal/Secret.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

struct SetupOptions {
  PlaceOptions place;
  std::string keyFile;
  bool adopt = false;
};

/// Shows the current place of the backup and asks for another one.
Place chosenPlace(OwnerSession& session) {
  const PropertyList now = session.ask("repository:");
  const std::string location = printable(now["location"].string());
  if (!location.empty()) {
    std::cout << filled(
                     tr("The backup is kept at %s now (%s). What is there stays there; at another place the "
                        "backup begins anew."),
                     location, healthText(now["health"].string()))
              << "\n\n";
  }
  return askForPlace(std::string(now["dataFolder"].string()));
}

std::string keyFor(const SetupOptions& options) {
  if (!options.keyFile.empty()) {
    return readKeyFile(options.keyFile);
  }
  return options.adopt ? askSecret(tr("Key or passphrase of the repository that is there:")) : std::string();
}

void setUp(const Globals& globals, const SetupOptions& options) {
  if (!options.place.isGiven() && !isSomebodyThere()) {
    throw CommandFailure(
        kUsage, tr("Nobody is there to be asked; --repository says where the backup is to be kept."));
  }
  OwnerSession session(globals);
  const Place place = options.place.isGiven() ? options.place.place() : chosenPlace(session);
  const std::string key = keyFor(options);
  PropertyList::Entries request = place.request();
  request.emplace_back("adopt", options.adopt);
  if (!key.empty()) {
    request.emplace_back("key", key);
  }
  const PropertyList answer = session.askForLong("setUpRepository:", std::move(request));
  const PropertyList repository = session.ask("repository:");
  std::cout << filled(answer["made"].boolValue() ? tr("A repository was made at %s.")
                                                 : tr("The repository is at %s."),
                      printable(repository["location"].string()))
            << '\n'
            << filled(tr("Its key lies in %s. Nobody can read the backup without it, you neither."),
                      printable(repository["keyFile"].string()))
            << '\n'
            << tr("Make a copy now, and keep it apart from this computer:") << '\n'
            << "    keldanectl key sheet sheet.svg     " << tr("a page to print") << '\n'
            << "    keldanectl key export FILE         " << tr("a file, for a disk elsewhere") << '\n';
}

}  // namespace

void addSetupCommand(CLI::App& app, Globals& globals) {
  CLI::App* command =
      app.add_subcommand("setup", tr("Say where the backup is to be kept; asks when it is not told"));
  auto options = std::make_shared<SetupOptions>();
  command
      ->add_option(
          "--repository", options->place.location,
          tr("A folder, or sftp:user@host:folder, rest:https://host/, s3:host/bucket and others of restic"))
      ->type_name("LOCATION");
  options->place.addTo(*command);
  command->add_option("--key", options->keyFile, tr("A file with the key that it is to have, or has"))
      ->type_name("FILE");
  command->add_flag("--adopt", options->adopt, tr("Go on with the repository that is there already"));
  command->callback([&globals, options] { setUp(globals, *options); });
}

}  // namespace keldane
