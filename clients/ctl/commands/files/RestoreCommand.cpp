#include <ctime>
#include <iostream>

#include "Common/DaemonText.h"
#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/BackupProgress.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/DateWords.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/ProgressLine.h"
#include "clients/ctl/layout/Text.h"
#include "clients/ctl/terminal/Interrupt.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr auto kReportInterval = std::chrono::milliseconds(200);

struct RestoreOptions {
  std::vector<std::string> paths;
  std::uint32_t version = 0;
  std::string before, target;
  bool replace = false, keepBoth = false, skip = false;
  bool json = false;
};

PropertyList::Entries requestFor(const RestoreOptions& options) {
  PropertyList::Array items;
  for (const std::string& path : options.paths) {
    items.push_back(PropertyList::dictionary({{"path", askablePath(path)}, {"version", options.version}}));
  }
  PropertyList::Entries request = {{"items", PropertyList::array(std::move(items))},
                                   {"conflict", options.replace ? "replace"
                                                : options.skip  ? "skip"
                                                                : "keepBoth"}};
  if (!options.target.empty()) {
    request.emplace_back("target", askablePath(options.target));
  }
  if (!options.before.empty()) {
    const std::optional<std::int64_t> time = timeNamed(options.before, std::time(nullptr));
    if (!time) {
      throw CommandFailure(kUsage,
                           filled(tr("\"%s\" is no date; 2026-11-20, \"2026-11-20 14:00\", yesterday and "
                                     "\"2 days ago\" are."),
                                  printable(options.before)));
    }
    request.emplace_back("before", Date::fromUnixTime(static_cast<double>(*time)));
  }
  return request;
}

bool isOver(std::string_view status) { return status != "waiting" && status != "running"; }

/// Follows one job of the daemon to its end.
class RestoreRun {
 public:
  RestoreRun(Globals& globals, const RestoreOptions& options)
      : globals_(globals),
        options_(options),
        session_(globals),
        drawn_(terminal_.isTerminal() && !options.json) {}

  void run() {
    const PropertyList::Entries request = requestFor(options_);
    job_ = session_.ask("restore:", request)["job"];
    const PropertyList report = follow();
    if (drawn_) {
      std::cout << terminal_.restartLine() << std::flush;
    }
    if (options_.json) {
      nlohmann::ordered_json json = {{"job", jsonValue(job_)}};
      json.update(jsonValue(report));
      std::cout << jsonLine(json) << '\n';
    }
    conclude(report);
  }

 private:
  /// Returns the last report. The first Ctrl-C cancels the job; its end is still waited for.
  PropertyList follow() {
    Interrupt interrupt;
    bool cancelled = false;
    for (;;) {
      const PropertyList report = session_.ask("restoreReport:", {{"job", job_}});
      if (isOver(report["status"].string())) {
        return report;
      }
      if (drawn_) {
        draw(report);
      }
      if (interrupt.wait(kReportInterval) && !cancelled) {
        cancelled = true;
        if (drawn_) {
          std::cout << terminal_.restartLine() << std::flush;
        }
        complain(tr("The restore is being cancelled; what was restored so far stays."));
        session_.ask("cancelRestore:", {{"job", job_}});
      }
    }
  }

  void draw(const PropertyList& report) {
    const auto left = [&](const char* all, const char* done) {
      const std::uint64_t whole = report[all].unsignedLongLongValue();
      return whole - std::min(whole, report[done].unsignedLongLongValue());
    };
    const std::uint64_t files = left("files", "filesDone"), bytes = left("bytes", "bytesDone");
    progress_.update(files, bytes, BackupProgress::Clock::now());
    FittedLine fitted(terminal_);
    if (report["status"].string() == "waiting" || report["files"].unsignedLongLongValue() == 0) {
      const std::string message = printable(daemonText(report["message"].string()));
      fitted.add(message.empty() ? tr("Looking for what is to be restored")
                                 : lastColumns(message, fitted.columnsLeft()));
    } else {
      fitted.addBar(progress_.fraction());
      fitted.add(filled(tr("%s, %s to go"), filesText(files), bytesText(bytes)));
      fitted.add(rateText(progress_));
      fitted.addPath(printable(report["currentFile"].string()));
    }
    std::cout << terminal_.restartLine() << fitted.text() << std::flush;
  }

  void conclude(const PropertyList& report) {
    const std::string_view status = report["status"].string();
    const PropertyList problems = report["problems"];
    const std::uint64_t skipped = report["skipped"].unsignedLongLongValue();
    if (!options_.json) {
      std::cout << filled(tr("%s restored, %s"), filesText(report["restored"].unsignedLongLongValue()),
                          bytesText(report["bytesDone"].unsignedLongLongValue()))
                << (skipped > 0 ? ", " + filled(tr("%s skipped"), countText(skipped)) : "")
                << (problems.count() > 0 ? ", " + filled(tr("%s with problems"), countText(problems.count()))
                                         : "")
                << ".\n"
                << std::flush;
    }
    for (std::size_t i = 0; i < problems.count(); ++i) {
      complain(sentenceFrom(problems[i]));
    }
    const std::string message = sentenceFrom(report["message"] ? report["message"] : PropertyList(""));
    if (status == "failed") {
      throw CommandFailure(kNotTaken, message.empty() ? tr("The restore failed.") : message);
    }
    if (status == "cancelled") {
      throw CommandFailure(kNotTaken, tr("The restore was cancelled."));
    }
    if (status != "done" && status != "doneWithProblems") {
      throw CommandFailure(kNotTaken, tr("The daemon knows nothing of the restore any more."));
    }
    globals_.status = status == "done" ? kDone : kNotTaken;
  }

  Globals& globals_;
  const RestoreOptions options_;
  const Terminal terminal_;
  OwnerSession session_;
  const bool drawn_;
  BackupProgress progress_;
  PropertyList job_;
};

}  // namespace

void addRestoreCommand(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand("restore", tr("Bring files and folders back from the backup"));
  auto options = std::make_shared<RestoreOptions>();
  command->add_option("PATH", options->paths, tr("Files, and folders with all that is below them"))
      ->required();
  CLI::Option* version = command
                             ->add_option("--version", options->version,
                                          tr("The state as of this version (keldanectl versions)"))
                             ->type_name("N")
                             ->check(numberFrom(1, UINT32_MAX));
  command
      ->add_option(
          "--before", options->before,
          tr("The state as of this time: 2026-11-20, \"2026-11-20 14:00\", yesterday, \"2 days ago\""))
      ->type_name("DATE")
      ->excludes(version);
  command->add_option("--to", options->target, tr("Restore into this folder instead of where it was"))
      ->type_name("DIR");
  CLI::Option_group* conflict = command->add_option_group(tr("What becomes of a file that is there already"));
  conflict->add_flag("--keep-both", options->keepBoth,
                     tr("The restored one gets another name (unless told otherwise)"));
  conflict->add_flag("--replace", options->replace, tr("The restored one takes its place"));
  conflict->add_flag("--skip", options->skip, tr("It stays, and none is restored"));
  conflict->require_option(0, 1);
  command->add_flag("--json", options->json, tr("Print JSON instead of text"));
  command->footer(
      tr("The first Ctrl-C cancels the restore. If keldanectl ends otherwise, the daemon goes on with it."));
  command->callback([&globals, options] { RestoreRun(globals, *options).run(); });
}

}  // namespace keldane
