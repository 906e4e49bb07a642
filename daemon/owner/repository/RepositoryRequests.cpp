#include "daemon/owner/repository/RepositoryRequests.h"

#include <fnmatch.h>

#include <charconv>
#include <chrono>

#include "daemon/owner/repository/RepositoryCall.h"
#include "daemon/server/RestoreChoices.h"
#include "platform/files/Path.h"
#include "platform/text/Format.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::size_t kMostFound = 10'000, kUsualFound = 1'000;
constexpr std::size_t kUsualSample = 40;

/// A date under a key of the settings; absent when it was never set.
PropertyList dateFrom(const std::optional<std::string>& text) {
  double seconds = 0;
  if (!text || std::from_chars(text->data(), text->data() + text->size(), seconds).ec != std::errc()) {
    return {};
  }
  return Date::fromUnixTime(seconds);
}

PropertyList countFrom(const std::optional<std::string>& text) {
  std::uint64_t number = 0;
  return text && std::from_chars(text->data(), text->data() + text->size(), number).ec == std::errc()
             ? PropertyList(number)
             : PropertyList();
}

PropertyList textFrom(const std::optional<std::string>& text) {
  return text ? PropertyList(*text) : PropertyList();
}

/// A path for people. Bytes that are not UTF-8 are written as escapes ("\xe9"), because an answer cannot hold
/// them.
std::string readable(const std::string& path) {
  std::string text;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t start = at;
    bool valid = true;
    nextCharacter(path, at, valid);
    text += valid
                ? path.substr(start, at - start)
                : stringWithFormat("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(path[start])));
  }
  return text;
}

PropertyList pathsFrom(const std::vector<std::string>& paths) {
  PropertyList::Array readablePaths;
  readablePaths.reserve(paths.size());
  for (const std::string& path : paths) {
    readablePaths.emplace_back(readable(path));
  }
  return PropertyList::array(std::move(readablePaths));
}

const char* wordFor(RestoreStatus status) {
  switch (status) {
    case RestoreStatus::waiting:
      return "waiting";
    case RestoreStatus::running:
      return "running";
    case RestoreStatus::done:
      return "done";
    case RestoreStatus::doneWithProblems:
      return "doneWithProblems";
    case RestoreStatus::failed:
      return "failed";
    case RestoreStatus::cancelled:
      return "cancelled";
    case RestoreStatus::unknown:
      break;
  }
  return "unknown";
}

}  // namespace

void RepositoryRequests::stop() {
  const ScopedLock guard(callsMutex_);
  stopping_ = true;
  for (EngineJob* job : calls_) {
    job->cancelled = true;
  }
}

PropertyList RepositoryRequests::repository(const PropertyList& request) {
  if (request["probe"].boolValue()) {
    Call call(*this);
    daemon_->watch().report(daemon_->engine().probe(call.job));
    daemon_->worker().wake();
  }
  const EngineAnswer standing = daemon_->watch().standing();
  const std::optional<RepositoryConfig> configuration = daemon_->files().configuration();
  const RepositoryConfig known = configuration.value_or(RepositoryConfig());
  Store& store = daemon_->store();
  const auto setting = [&](const char* key) { return store.value(Store::Table::settings, key); };
  const std::vector<SnapshotRecord> snapshots = store.snapshots();
  double lastFull = 0;
  for (const SnapshotRecord& snapshot : snapshots) {
    lastFull = snapshot.full ? snapshot.time : lastFull;
  }
  RepositoryCare& care = daemon_->care();
  const bool isRebuilding = care.snapshotsToRead() > 0;
  const bool hasCheck = setting("lastCheckResult").has_value();
  const bool hasDrill = setting("lastDrillResult").has_value();
  return PropertyList::dictionary({
      {"location", known.publicLocation()},
      {"health", configuration ? healthWord(standing.health) : healthWord(Health::notSetUp)},
      {"detail", standing.detail},
      {"repositoryId", known.repositoryId},
      {"computerNumber", known.computerNumber},
      {"hostName", known.hostName},
      {"size", care.repositorySize()},
      {"snapshots", std::uint64_t{snapshots.size()}},
      {"files", store.totals().files},
      {"lastGoodBackup", dateFrom(setting("lastGoodBackup"))},
      {"lastFull", lastFull > 0 ? PropertyList(Date::fromUnixTime(lastFull)) : PropertyList()},
      {"lastCheck", hasCheck ? dateFrom(setting("lastCheck")) : PropertyList()},
      {"lastCheckResult", textFrom(setting("lastCheckResult"))},
      {"lastDrill", hasDrill ? dateFrom(setting("lastDrill")) : PropertyList()},
      {"drillCompared", countFrom(setting("drillCompared"))},
      {"drillHashed", countFrom(setting("drillHashed"))},
      {"drillFailed", countFrom(setting("drillFailed"))},
      {"lastDrillResult", textFrom(setting("lastDrillResult"))},
      {"catalogue", isRebuilding ? "rebuilding" : "complete"},
      {"catalogueDone", isRebuilding ? PropertyList(std::uint64_t{care.snapshotsRead()}) : PropertyList()},
      {"catalogueTotal", isRebuilding ? PropertyList(std::uint64_t{care.snapshotsToRead()}) : PropertyList()},
      {"dataFolder", daemon_->files().folder().path},
      {"keyFile", daemon_->files().folder().key()},
  });
}

PropertyList RepositoryRequests::check(const PropertyList& request) {
  Call call(*this);
  const std::string_view mode = request["mode"].string();
  if (mode == "drill") {
    const std::uint64_t sample = request["sample"].unsignedLongLongValue();
    const DrillEnd end = daemon_->care().drill(sample == 0 ? kUsualSample : sample, call.job);
    return end.answer ? PropertyList::dictionary({{"result", end.sentence()},
                                                  {"ok", end.failed.empty()},
                                                  {"compared", std::uint64_t{end.compared}},
                                                  {"hashed", std::uint64_t{end.hashed}},
                                                  {"failed", pathsFrom(end.failed)}})
                      : errorAnswer(end.answer.detail);
  }
  if (mode != "data" && mode != "structure") {
    return errorAnswer("The mode of a check is structure, data or drill.");
  }
  const unsigned parts = mode == "data" ? 1 : 0;
  const RepositoryCare::CheckEnd end = daemon_->care().check(parts, parts, call.job);
  if (!end.answer && end.answer.health != Health::damaged) {
    return errorAnswer(end.answer.detail);
  }
  return PropertyList::dictionary(
      {{"result", end.sentence}, {"ok", end.ok}, {"damagedFiles", pathsFrom(end.damagedFiles)}});
}

// A pattern with a slash is for whole paths, any other for names.
PropertyList RepositoryRequests::find(const PropertyList& request) {
  const std::string pattern(request["pattern"].string());
  const bool isPath = pattern.find('/') != std::string::npos;
  const std::uint64_t asked = request["most"].unsignedLongLongValue();
  const std::size_t most = asked == 0 ? kUsualFound : std::min<std::uint64_t>(asked, kMostFound);
  PropertyList::Array entries;
  bool more = false;
  daemon_->store().visitRecords("/", [&](const std::string& path, const BackupRecord& record) {
    const std::string text = isPath ? path : std::string(entryName(path));
    if (fnmatch(pattern.c_str(), text.c_str(), 0) != 0) {
      return true;
    }
    more = entries.size() >= most;
    if (!more) {
      entries.push_back(PropertyList::dictionary({{"path", readable(path)},
                                                  {"version", record.version},
                                                  {"backupDate", Date::fromUnixTime(record.date)},
                                                  {"size", record.size},
                                                  {"deleted", record.removed}}));
    }
    return !more;
  });
  return PropertyList::dictionary({{"entries", PropertyList::array(std::move(entries))}, {"more", more}});
}

PropertyList RepositoryRequests::failures(const PropertyList& request) {
  const std::uint64_t asked = request["most"].unsignedLongLongValue();
  PropertyList::Array entries;
  for (const FailureRecord& failure :
       daemon_->store().failures(asked == 0 ? kUsualFound : std::min<std::uint64_t>(asked, kMostFound))) {
    entries.push_back(PropertyList::dictionary({{"path", readable(failure.path)},
                                                {"reason", failure.reason},
                                                {"since", Date::fromUnixTime(failure.since)}}));
  }
  return PropertyList::dictionary(
      {{"entries", PropertyList::array(std::move(entries))}, {"count", daemon_->store().failureCount()}});
}

PropertyList RepositoryRequests::settings(const PropertyList& request) {
  Store& store = daemon_->store();
  struct Setting {
    const char* key;
    const char* name;  ///< the administrator's name for the setting
    Store::Table table;
    const char* storedAs;
    std::uint64_t usual;
  };
  static constexpr Surroundings::Rules kRest;
  static constexpr Setting kSettings[] = {
      {"keepDeletedDays", "keep-deleted-days", Store::Table::settings, "keepDeletedDays", 90},
      {"quotaMB", "quota-mb", Store::Table::profile, "QuotaMB", 0},
      {"alertDays", "alert-days", Store::Table::settings, "alertDays", 3},
      {"restBelowPercent", "rest-below-percent", Store::Table::settings, "restBelowPercent",
       kRest.restBelowPercent},
      {"restOnMetered", "rest-on-metered", Store::Table::settings, "restOnMetered",
       kRest.restOnMetered ? 1 : 0},
      {"restInPowerSaver", "rest-in-power-saver", Store::Table::settings, "restInPowerSaver",
       kRest.restInPowerSaver ? 1 : 0},
  };
  for (const Setting& setting : kSettings) {
    if (request[setting.key] && store.isFixed(setting.table, setting.storedAs)) {
      return errorAnswer(std::string("The administrator of this computer has fixed \"") + setting.name +
                         "\".");
    }
  }
  PropertyList::Entries answer;
  for (const Setting& setting : kSettings) {
    if (const PropertyList value = request[setting.key]) {
      store.setValue(setting.table, setting.storedAs, std::to_string(value.unsignedLongLongValue()));
    }
    const PropertyList kept = countFrom(store.value(setting.table, setting.storedAs));
    answer.emplace_back(setting.key, kept ? kept : PropertyList(setting.usual));
  }
  daemon_->watch().tryNow();
  daemon_->tellWorker();
  return PropertyList::dictionary(std::move(answer));
}

PropertyList RepositoryRequests::surroundings(const PropertyList& request) {
  Surroundings::Report report;
  if (const PropertyList percent = request["batteryPercent"]) {
    report.batteryPercent = percent.unsignedIntValue();
  }
  report.metered = request["metered"].boolValue();
  report.powerSaver = request["powerSaver"].boolValue();
  daemon_->tellSurroundings(report);
  return PropertyList::dictionary({{"holdsFor", Surroundings::kHolds}});
}

PropertyList RepositoryRequests::restore(const PropertyList& request) {
  PropertyList::Entries choices = {{"files", request["items"]},
                                   {"target", request["target"]},
                                   {"exactPath", request["exactPath"]},
                                   {"conflict", request["conflict"]},
                                   {"before", request["before"]}};
  std::string refusal;
  std::optional<RestoreRequest> wanted =
      restoreRequestFrom(PropertyList::dictionary(std::move(choices)), &refusal);
  if (!wanted) {
    return errorAnswer(refusal);
  }
  wanted->user = geteuid();
  wanted->group = getegid();
  const std::uint32_t job = daemon_->restores().add(*wanted, &refusal);
  return job == 0 ? errorAnswer(refusal) : PropertyList::dictionary({{"job", job}});
}

PropertyList RepositoryRequests::restoreReport(const PropertyList& request) {
  const std::uint32_t job = request["job"].unsignedIntValue();
  const RestoreReport report = daemon_->restores().report(job);
  return PropertyList::dictionary(
      {{"status", wordFor(report.status)},
       {"files", report.files},
       {"filesDone", report.filesDone},
       {"bytes", report.bytes},
       {"bytesDone", report.bytesDone},
       {"restored", report.restored},
       {"skipped", report.skipped},
       {"problems", pathsFrom(report.problems)},
       {"message", report.message},
       {"currentFile",
        daemon_->restores().current() == job ? daemon_->restores().currentFile() : std::string()}});
}

PropertyList RepositoryRequests::cancelRestore(const PropertyList& request) {
  daemon_->restores().cancel(request["job"].unsignedIntValue());
  return PropertyList::dictionary(PropertyList::Entries());
}

}  // namespace keldane
