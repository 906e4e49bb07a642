#include "clients/preferences/window/restore/JobPane.h"

#include <glibmm/main.h>

#include <algorithm>

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr unsigned kReportInterval = 300;  // milliseconds
constexpr std::size_t kMostProblems = 10;

bool isOver(std::string_view status) { return status != "waiting" && status != "running"; }

std::uint64_t number(const PropertyList& report, const char* key) {
  return report[key].unsignedLongLongValue();
}

}  // namespace

std::string restoreResult(const PropertyList& report) {
  const std::string_view status = report["status"].string();
  const std::string restored = filled(tr("%s restored, %s."), filesWords(number(report, "restored")),
                                      bytesText(number(report, "bytesDone")));
  const std::uint64_t skipped = number(report, "skipped");
  const std::string left =
      skipped == 0 ? std::string()
                   : " " + filled(trn("%s file was there and was left.", "%s files were there and were left.",
                                      static_cast<unsigned long>(skipped)),
                                  countText(skipped));
  if (status == "done" || status == "doneWithProblems") {
    const std::size_t problems = report["problems"].count();
    return restored + left +
           (problems == 0 ? std::string()
                          : " " + filled(trn("There was %s problem.", "There were %s problems.", problems),
                                         countText(problems)));
  }
  if (status == "cancelled") {
    return tr("The restore was cancelled; what was restored so far stays.");
  }
  if (status == "failed") {
    const std::string message = printable(daemonText(report["message"].string()));
    return message.empty() ? tr("The restore failed.") : filled(tr("The restore failed: %s"), message);
  }
  return tr("The daemon knows nothing of the restore any more.");
}

JobPane::JobPane(DaemonDesk& desk, Finished finished)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      finished_(std::move(finished)),
      buttons_(Gtk::Orientation::HORIZONTAL, kGap),
      cancel_(tr("Cancel the Restore")),
      open_(tr("Open the Folder")) {
  progress_.set_show_text(true);
  setAccessibleName(progress_, tr("Progress of the restore"));
  makeParagraph(text_);
  makeParagraph(problems_);
  append(progress_);
  append(text_);
  append(problems_);
  buttons_.append(cancel_);
  buttons_.append(open_);
  append(buttons_);
  set_visible(false);
  cancel_.signal_clicked().connect([this] {
    cancel_.set_sensitive(false);
    desk_.ask("cancelRestore:", {{"job", job_}}, [](const OwnerAnswer&) {});
  });
  open_.signal_clicked().connect([this] { showFolder(folder_); });
}

JobPane::~JobPane() { timer_.disconnect(); }

void JobPane::say(const std::string& sentence) {
  set_visible(true);
  progress_.set_visible(false);
  buttons_.set_visible(false);
  problems_.set_visible(false);
  text_.set_text(sentence);
}

void JobPane::follow(std::uint64_t job, const std::string& folder) {
  job_ = job;
  folder_ = folder;
  set_visible(true);
  progress_.set_visible(true);
  progress_.set_fraction(0);
  progress_.set_text({});
  problems_.set_visible(false);
  buttons_.set_visible(true);
  cancel_.set_visible(true);
  cancel_.set_sensitive(true);
  open_.set_visible(false);
  text_.set_text(tr("Looking for what is to be restored."));
  timer_.disconnect();
  timer_ = Glib::signal_timeout().connect(
      [this] {
        askForReport();
        return true;
      },
      kReportInterval);
}

void JobPane::askForReport() {
  if (asking_) {
    return;
  }
  asking_ = true;
  desk_.ask("restoreReport:", {{"job", job_}}, [this](const OwnerAnswer& answer) {
    asking_ = false;
    showReport(answer);
  });
}

// A daemon that is away may come back; the job may still run while nobody reports on it.
void JobPane::showReport(const OwnerAnswer& answer) {
  if (!answer) {
    text_.set_text(problemOf(answer));
  } else if (isOver(answer.values["status"].string())) {
    conclude(answer.values);
  } else {
    showProgress(answer.values);
  }
}

void JobPane::showProgress(const PropertyList& report) {
  const auto left = [&](const char* all, const char* done) {
    return number(report, all) - std::min(number(report, all), number(report, done));
  };
  const std::uint64_t files = left("files", "filesDone"), bytes = left("bytes", "bytesDone");
  const std::string message = printable(daemonText(report["message"].string()));
  if (report["status"].string() == "waiting" || number(report, "files") == 0) {
    text_.set_text(message.empty() ? tr("Looking for what is to be restored.") : message);
    progress_.pulse();
    return;
  }
  const bool byBytes = number(report, "bytes") > 0;
  const auto all = static_cast<double>(number(report, byBytes ? "bytes" : "files"));
  const double fraction = 1 - static_cast<double>(byBytes ? bytes : files) / all;
  progress_.set_fraction(fraction);
  progress_.set_text(std::to_string(static_cast<int>(fraction * 100)) + " %");
  text_.set_text(filled(tr("%s, %s to go"), filesWords(files), bytesText(bytes)) + "  " +
                 printable(report["currentFile"].string()));
}

void JobPane::conclude(const PropertyList& report) {
  timer_.disconnect();
  job_ = 0;
  const std::string result = restoreResult(report);
  text_.set_text(result);
  progress_.set_visible(false);
  cancel_.set_visible(false);
  open_.set_visible(!folder_.empty());
  const PropertyList problems = report["problems"];
  std::string text;
  for (std::size_t i = 0; i < std::min(problems.count(), kMostProblems); ++i) {
    text += (i == 0 ? "" : "\n") + printable(daemonText(problems[i].string()));
  }
  problems_.set_text(text);
  problems_.set_visible(!text.empty());
  finished_(result, report["status"].string() == "done");
}

}  // namespace keldane
