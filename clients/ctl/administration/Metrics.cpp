#include "clients/ctl/administration/Metrics.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace keldane {

namespace {

/// One of these is 1 in "keldane_repository_health", and all others are 0.
constexpr const char* kHealths[] = {
    "ready",  "notSetUp", "missing", "otherRepository", "wrongKey",      "notConnected", "unreachable",
    "denied", "locked",   "full",    "damaged",         "engineMissing", "engineTooOld", "failed"};

class Text {
 public:
  explicit Text(double now) : now_(now) {}

  void family(const std::string& name, const char* kind, const char* unit, const char* help) {
    name_ = "keldane_" + name;
    text_ += "# TYPE " + name_ + " " + kind + "\n";
    if (*unit != '\0') {
      text_ += "# UNIT " + name_ + " " + unit + "\n";
    }
    text_ += "# HELP " + name_ + " " + help + "\n";
  }
  void sample(const std::string& labels, const std::string& value) {
    text_ += name_ + labels + " " + value + "\n";
  }

  /// Adds a number; nothing when the daemon did not report it.
  void gauge(const std::string& name, const char* unit, const char* help, const PropertyList& value) {
    if (value) {
      family(name, "gauge", unit, help);
      sample("", std::to_string(value.unsignedLongLongValue()));
    }
  }
  /// Adds the time of an event and its age; nothing when it never happened.
  void moment(const std::string& name, const char* help, const PropertyList& date) {
    if (date.isDate()) {
      const double time = date.date().unixTime();
      family(name + "_timestamp_seconds", "gauge", "seconds", help);
      sample("", number(time));
      family(name + "_age_seconds", "gauge", "seconds", "The time since then.");
      sample("", number(std::max(0.0, now_ - time)));
    }
  }
  std::string end() { return text_ + "# EOF\n"; }

 private:
  static std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.3f", value);
    return text;
  }

  const double now_;
  std::string name_, text_;
};

void addHealth(Text& text, std::string_view health) {
  text.family("repository_health", "stateset", "", "How the repository stands.");
  for (const char* each : kHealths) {
    text.sample("{keldane_repository_health=\"" + std::string(each) + "\"}", health == each ? "1" : "0");
  }
}

}  // namespace

std::string metricsText(const PropertyList& repository, const PropertyList& state, double now) {
  Text text(now);
  text.family("up", "gauge", "", "1 if the backup daemon answers.");
  text.sample("", repository.isDictionary() && state.isDictionary() ? "1" : "0");
  if (!repository.isDictionary() || !state.isDictionary()) {
    return text.end();
  }
  text.moment("last_good_backup", "When everything that is selected was last known to be stored.",
              repository["lastGoodBackup"]);
  text.gauge("pending_files", "files", "Files that wait to be stored.", state["pendingFileCount"]);
  text.gauge("pending_bytes", "bytes", "Bytes of the files that wait to be stored.",
             state["pendingFileSize"]);
  text.gauge("failed_files", "files", "Files that could not be stored.", state["failureCount"]);
  text.gauge("stored_files", "files", "Files that are stored.", state["backedUpFileCount"]);
  text.gauge("stored_bytes", "bytes", "Bytes of the files that are stored.", state["backedupFileSize"]);
  text.gauge("paused", "", "1 while the backup is paused.",
             PropertyList(std::uint64_t{state["paused"].boolValue()}));
  addHealth(text, repository["health"].string());
  text.gauge("repository_size_bytes", "bytes", "What the repository takes.", repository["size"]);
  text.gauge("repository_snapshots", "snapshots", "Snapshots of this computer.", repository["snapshots"]);
  text.moment("last_check", "When stored data was last checked.", repository["lastCheck"]);
  text.moment("last_drill", "When files were last fetched and compared.", repository["lastDrill"]);
  text.gauge("last_drill_failed_files", "files", "Files that did not come back as they were stored.",
             repository["drillFailed"]);
  return text.end();
}

}  // namespace keldane
