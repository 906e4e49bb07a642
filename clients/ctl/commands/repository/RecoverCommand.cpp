#include <charconv>
#include <iostream>
#include <optional>

#include "cli/Json.h"
#include "clients/core/BackupProgress.h"
#include "clients/core/words/HealthText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/ProgressLine.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/setup/Place.h"
#include "clients/ctl/setup/SecretFile.h"
#include "clients/ctl/terminal/Secret.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr auto kCatalogueInterval = std::chrono::milliseconds(200);
constexpr std::size_t kComputerColumns = 8, kHostColumns = 24, kSnapshotColumns = 10;

struct RecoverOptions {
  PlaceOptions place;
  std::string keyFile;
  std::optional<std::uint32_t> computer;
  bool takeOver = false, json = false;
};

/// Builds the daemon's catalogue anew from a repository, and reports the progress.
class Recovery {
 public:
  Recovery(Globals& globals, const RecoverOptions& options)
      : globals_(globals), options_(options), drawn_(terminal_.isTerminal() && !options.json) {}

  void run() {
    PropertyList::Entries request = options_.place.place().request();
    request.emplace_back("key", readKeyFile(options_.keyFile));
    request.emplace_back("takeOver", options_.takeOver);
    OwnerSession session(globals_);
    if (!begin(session, request)) {
      return;
    }
    const PropertyList repository = follow(session);
    if (drawn_) {
      std::cout << terminal_.restartLine() << std::flush;
    }
    conclude(repository);
  }

 private:
  /// Starts the recovery. Returns false when the person must first choose whose files are meant.
  bool begin(OwnerSession& session, const PropertyList::Entries& request) {
    std::optional<std::uint32_t> computer = options_.computer;
    for (;;) {
      PropertyList::Entries whole = request;
      if (computer) {
        whole.emplace_back("computerNumber", *computer);
      }
      const PropertyList answer = session.askForLong("recover:", std::move(whole));
      if (answer["computers"].count() == 0) {
        return true;
      }
      if (options_.json) {
        std::cout << jsonLine(jsonValue(answer)) << '\n';
      } else {
        list(answer["computers"]);
      }
      if (computer || options_.json || !isSomebodyThere()) {
        complain(tr("Several computers share this repository: --computer says which one is meant."));
        globals_.status = kNotTaken;
        return false;
      }
      computer = askForComputer();
    }
  }

  static std::uint32_t askForComputer() {
    for (;;) {
      const std::string answer = askLine(tr("Which computer (its number)?"));
      std::uint32_t number = 0;
      const auto [end, error] = std::from_chars(answer.data(), answer.data() + answer.size(), number);
      if (error == std::errc() && end == answer.data() + answer.size()) {
        return number;
      }
    }
  }

  static void list(const PropertyList& computers) {
    std::cout << rightAligned(tr("Number"), kComputerColumns) << "  " << padded(tr("Name"), kHostColumns)
              << rightAligned(tr("Snapshots"), kSnapshotColumns) << "  " << tr("Newest") << '\n';
    for (std::size_t i = 0; i < computers.count(); ++i) {
      const PropertyList each = computers[i];
      std::cout << rightAligned(std::to_string(each["computerNumber"].unsignedIntValue()), kComputerColumns)
                << "  " << padded(printable(each["hostName"].string()), kHostColumns)
                << rightAligned(countText(each["snapshots"].unsignedLongLongValue()), kSnapshotColumns)
                << "  " << dateText(each["newest"]) << '\n';
    }
  }

  PropertyList follow(OwnerSession& session) {
    for (;;) {
      const PropertyList repository = session.ask("repository:");
      if (repository["catalogue"].string() != "rebuilding") {
        return repository;
      }
      if (drawn_) {
        draw(repository);
      }
      std::this_thread::sleep_for(kCatalogueInterval);
    }
  }

  void draw(const PropertyList& repository) {
    const std::uint64_t total = repository["catalogueTotal"].unsignedLongLongValue();
    const std::uint64_t left = total - std::min(total, repository["catalogueDone"].unsignedLongLongValue());
    const std::string_view health = repository["health"].string();
    progress_.update(left, 0, BackupProgress::Clock::now());
    FittedLine fitted(terminal_);
    if (total > 0) {
      fitted.addBar(1 - static_cast<double>(left) / static_cast<double>(total));
    }
    fitted.add(total > 0 ? filled(tr("%s of %s snapshots to read"), countText(left), countText(total))
                         : tr("Reading the repository"));
    fitted.add(health == "ready" || health.empty() ? "" : healthText(health));
    const auto time = progress_.timeLeft();
    fitted.add(total > 0 && time && left > 0 ? filled(tr("%s left"), durationText(*time)) : "");
    std::cout << terminal_.restartLine() << fitted.text() << std::flush;
  }

  void conclude(const PropertyList& repository) {
    if (options_.json) {
      std::cout << jsonLine(jsonValue(repository)) << '\n';
    }
    const std::string_view health = repository["health"].string();
    if (health != "ready") {
      throw CommandFailure(kNotTaken, repository["detail"]
                                          ? sentenceFrom(repository["detail"])
                                          : filled(tr("The repository is %s."), healthText(health)));
    }
    if (!options_.json) {
      std::cout << filled(tr("What is in the repository is known again (%s; snapshots: %s). Restore what you "
                             "need; nothing is forgotten until you say"),
                          filesText(repository["files"].unsignedLongLongValue()),
                          countText(repository["snapshots"].unsignedLongLongValue()))
                << "\n    keldanectl resume\n";
    }
  }

  Globals& globals_;
  const RecoverOptions options_;
  const Terminal terminal_;
  const bool drawn_;
  BackupProgress progress_;
};

void recover(Globals& globals, const RecoverOptions& options) {
  const std::string& location = options.place.location;
  if ((location == "on" || location == "off") && options.keyFile.empty()) {
    turnRecoverMode(globals, location == "on");
    return;
  }
  if (!options.place.isGiven() || options.keyFile.empty()) {
    throw CommandFailure(kUsage, tr("It takes LOCATION and --key, or on or off."));
  }
  Recovery(globals, options).run();
}

}  // namespace

void addRecoverCommand(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("recover", tr("Learn again from a repository what is in it, after "
                                                       "the loss of the computer; or recover mode on, off"));
  auto options = std::make_shared<RecoverOptions>();
  command->add_option("LOCATION", options->place.location,
                      tr("Where the repository is, as for setup; on and off switch recover mode alone"));
  options->place.addTo(*command);
  command->add_option("--key", options->keyFile, tr("A file with its key, a saved sheet, or \"-\""))
      ->type_name("FILE");
  command
      ->add_option("--computer", options->computer,
                   tr("Whose files, when several computers share the repository"))
      ->type_name("N");
  command->add_flag("--take-over", options->takeOver,
                    tr("Go on with that computer's backup; without it this computer begins one of its own"));
  command->add_flag("--json", options->json, tr("Print JSON instead of text"));
  command->callback([&globals, options] { recover(globals, *options); });
}

}  // namespace keldane
