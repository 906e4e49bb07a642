// The requests of the daemon's own user and of root, independent of the transport.
#pragma once

#include "platform/plist/PropertyList.h"

namespace keldane {

/// There is one operation for each method of the second socket. Each takes a dictionary and returns one. An
/// answer may hold "error", a sentence for people, instead of its keys. Calls come on many threads at a time,
/// one for each connection. A call may take as long as it needs and delays its own connection only. The keys
/// of a request have been checked before: required ones are there, and all have the kinds that are stated
/// here.
///
/// Only the answer of `exportKey` holds a secret. No text of an exception does.
class OwnerRequests {
 public:
  virtual ~OwnerRequests() = default;

  /// {"probe" bool: ask the repository now} -> {"location" without secrets, "health": one of ready, notSetUp,
  /// missing, otherRepository, wrongKey, notConnected, unreachable, denied, locked, full, damaged,
  /// engineMissing, engineTooOld, failed; "detail": a sentence; "repositoryId", "computerNumber", "hostName",
  /// "size" (bytes), "snapshots" and "files" (counts), "lastGoodBackup", "lastFull", "lastCheck" and
  /// "lastDrill" (dates, absent: never), "lastCheckResult", "lastDrillResult" (texts), "drillCompared",
  /// "drillHashed", "drillFailed" (counts), "catalogue": "complete" or "rebuilding", then with
  /// "catalogueDone" and "catalogueTotal" (snapshots); "dataFolder", "keyFile" (paths)}
  virtual PropertyList repository(const PropertyList& request) = 0;

  /// {"location" must be there, "environment" {NAME: text}, "options" {name: text}, "key" (text; absent: a
  /// new one is made), "adopt" bool: take over the repository that is at the place} -> {"repositoryId",
  /// "made" bool, "keyFile"}
  virtual PropertyList setUpRepository(const PropertyList& request) = 0;

  /// {"location" and "key" must be there, "environment", "options", "computerNumber": whose snapshots,
  /// "takeOver" bool: go on under that number} -> {"started": true}, and `repository` tells how far it has
  /// come; or, when the repository holds the snapshots of several computers and none was named, {"computers":
  /// [{"computerNumber", "hostName", "snapshots", "newest" (date)}]} and nothing was begun.
  virtual PropertyList recover(const PropertyList& request) = 0;

  /// {} -> {"key", "location" without secrets, "repositoryId", "computerNumber", "hostName"}
  virtual PropertyList exportKey(const PropertyList& request) = 0;
  /// {"key" must be there} -> {}: it opens the repository and is kept from now on.
  virtual PropertyList importKey(const PropertyList& request) = 0;
  /// {"key" must be there} -> {"matches" bool}: whether it opens the repository. Keeps nothing.
  virtual PropertyList verifyKey(const PropertyList& request) = 0;
  /// {"passphrase" must be there} -> {}: it opens the repository too.
  virtual PropertyList addPassphrase(const PropertyList& request) = 0;

  /// {"mode": "structure", "data" or "drill", must be there; "sample": files of a drill} -> when it is done:
  /// {"result": a sentence, "ok" bool, "damagedFiles" [path], "compared", "hashed" (counts), "failed" [path]}
  virtual PropertyList check(const PropertyList& request) = 0;

  /// {"pattern" must be there, "most": entries} -> {"entries": [{"path", "version", "backupDate", "size",
  /// "deleted" bool}], "more" bool}
  virtual PropertyList find(const PropertyList& request) = 0;

  /// {"most": entries} -> {"entries": [{"path", "reason", "since" (date)}], "count": of all}
  virtual PropertyList failures(const PropertyList& request) = 0;

  /// {"keepDeletedDays", "quotaMB", "alertDays", "restBelowPercent" (of the battery; 0: never),
  /// "restOnMetered" and "restInPowerSaver" (0 or 1): new values, each only if it is to change} -> all as
  /// they are now
  virtual PropertyList settings(const PropertyList& request) = 0;
  /// {"batteryPercent" (absent: not on battery), "metered" and "powerSaver" bool: the state of power and
  /// network} -> {"holdsFor" (seconds): the time after which the report is forgotten, unless there is a new
  /// one}
  virtual PropertyList surroundings(const PropertyList& request) = 0;

  /// {"items" [{"path", "version" (0 or absent: the newest)}] must be there, "target": a folder, "exactPath":
  /// of a single item, "conflict": "keepBoth" (when absent), "replace" or "skip", "before" (date)} -> {"job":
  /// number}
  virtual PropertyList restore(const PropertyList& request) = 0;
  /// {"job" must be there} -> {"status": unknown, waiting, running, done, doneWithProblems, failed or
  /// cancelled; "files", "filesDone", "bytes", "bytesDone", "restored", "skipped" (counts), "problems"
  /// [sentence], "message", "currentFile"}
  virtual PropertyList restoreReport(const PropertyList& request) = 0;
  /// {"job" must be there} -> {}
  virtual PropertyList cancelRestore(const PropertyList& request) = 0;

  /// {} -> {"dates": of the snapshots that are there, oldest first}
  virtual PropertyList backups(const PropertyList& request) = 0;
  /// {"path" and "before" (date) must be there} -> {"children": the stored entries of the folder at that
  /// time, as node dictionaries sorted by name}
  virtual PropertyList storedFolder(const PropertyList& request) = 0;

  /// {} -> {}: a new key opens the repository, and the former one no longer does. Stored data is not
  /// encrypted anew.
  virtual PropertyList changeKey(const PropertyList& request) = 0;
  /// {"location" must be there, "environment", "options"} -> {"repositoryId"}, when everything was copied to
  /// that place and checked, and is used from there. The former place stays unchanged.
  virtual PropertyList moveRepository(const PropertyList& request) = 0;
  /// {} -> {"status": none, copying, checking, switching, done, failed or cancelled; "location" without
  /// secrets, "done" and "all" (snapshots), "message": a sentence when it failed}
  virtual PropertyList moveReport(const PropertyList& request) = 0;
  /// {} -> {}
  virtual PropertyList cancelMove(const PropertyList& request) = 0;

  /// {"pattern" must be there: a line of the ignore list; "most": entries} -> {"entries" [path], "count" and
  /// "bytes" of all}: the stored files, still on the disk, that the pattern would exclude.
  virtual PropertyList previewPattern(const PropertyList& request) = 0;
};

}  // namespace keldane
