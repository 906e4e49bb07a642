// The requests that set up, recover and open repositories.
#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

#include "daemon/owner/repository/RepositoryCall.h"
#include "daemon/owner/repository/RepositoryTrial.h"

namespace keldane {

// No other place is set up when the administrator has fixed the place of the backup.
std::optional<PropertyList> RepositoryRequests::refusedPlace(const PropertyList& request) const {
  const std::optional<ConfigValue> location = daemon_->config().value("location");
  if (!location || !location->fixed || request["location"].string() == location->text) {
    return std::nullopt;
  }
  return errorAnswer(
      "The administrator of this computer has fixed the place of the backup: " + location->text + ".");
}

PropertyList RepositoryRequests::setUpRepository(const PropertyList& request) {
  if (const std::optional<PropertyList> refused = refusedPlace(request)) {
    return *refused;
  }
  return change([&](EngineJob& job) {
    Trial trial(*daemon_, engine_, request);
    const bool adopt = request["adopt"].boolValue();
    if (const EngineAnswer answer = adopt ? trial.adopt(job) : trial.make(job); !answer) {
      return errorAnswer(answer.detail);
    }
    takeOver(trial, false);
    return PropertyList::dictionary({{"repositoryId", trial.configuration().repositoryId},
                                     {"made", !adopt},
                                     {"keyFile", daemon_->files().folder().key()}});
  });
}

PropertyList RepositoryRequests::computersIn(const std::vector<Snapshot>& snapshots) const {
  struct Computer {
    std::string host;
    std::uint64_t snapshots = 0;
    double newest = 0;
  };
  std::map<std::uint32_t, Computer> computers;
  for (const Snapshot& snapshot : snapshots) {
    if (const std::uint32_t number = numberFromTags(snapshot, "computer:"); number != 0) {
      Computer& computer = computers[number];
      ++computer.snapshots;
      if (snapshot.time >= computer.newest) {
        computer.newest = snapshot.time;
        computer.host = snapshot.host;
      }
    }
  }
  PropertyList::Array list;
  for (const auto& [number, computer] : computers) {
    list.push_back(PropertyList::dictionary({{"computerNumber", number},
                                             {"hostName", computer.host},
                                             {"snapshots", computer.snapshots},
                                             {"newest", Date::fromUnixTime(computer.newest)}}));
  }
  return PropertyList::array(std::move(list));
}

PropertyList RepositoryRequests::recover(const PropertyList& request) {
  if (const std::optional<PropertyList> refused = refusedPlace(request)) {
    return *refused;
  }
  return change([&](EngineJob& job) {
    Trial trial(*daemon_, engine_, request);
    std::vector<Snapshot> snapshots;
    EngineAnswer answer = trial.adopt(job);
    answer = answer ? trial.engine().snapshots(true, snapshots, job) : answer;
    if (!answer) {
      return errorAnswer(answer.detail);
    }
    const PropertyList computers = computersIn(snapshots);
    std::uint32_t number = request["computerNumber"].unsignedIntValue();
    if (number == 0 && computers.count() > 1) {
      return PropertyList::dictionary({{"computers", computers}});
    }
    number = number != 0 ? number : computers[std::size_t{0}]["computerNumber"].unsignedIntValue();
    std::uint32_t highest = 0;
    for (const Snapshot& snapshot : snapshots) {
      if (numberFromTags(snapshot, "computer:") == number) {
        highest = std::max(highest, numberFromTags(snapshot, "number:"));
      }
    }
    if (highest == 0) {
      return errorAnswer("The repository holds no backup of that computer.");
    }
    trial.goOnAs(number, highest, request["takeOver"].boolValue());
    takeOver(trial, true);
    return PropertyList::dictionary({{"started", true}});
  });
}

// Other changes take seconds and are waited for. A move of the repository can take hours, and it may begin
// while this waits.
PropertyList RepositoryRequests::change(const Change& work) {
  while (!changing_.try_lock()) {
    {
      const ScopedLock guard(moveMutex_);
      if (move_.job != nullptr) {
        return errorAnswer("The backup is just being moved to another place.");
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const ScopedLock changing(changing_, std::adopt_lock);
  Call call(*this);
  try {
    return work(call.job);
  } catch (const std::exception& error) {
    return errorAnswer(error.what());
  }
}

// No batch runs meanwhile. The catalogue of another repository does not describe this one, so it is cleared.
void RepositoryRequests::takeOver(const Trial& trial, bool isRecovery) {
  const BackupWorker::Stillness stillness = daemon_->worker().holdStill();
  const std::optional<RepositoryConfig> before = daemon_->files().configuration();
  const bool isAnother = isRecovery || !before || before->repositoryId != trial.configuration().repositoryId;
  if (isRecovery) {
    daemon_->setSetting("recoverMode", 1);
    daemon_->store().setValue(Store::Table::settings, kTakeRules, "1");
  }
  trial.replaceIn(daemon_->files());
  if (isAnother) {
    daemon_->store().clearCatalogue();
    daemon_->care().expectRebuild();
  }
  useNewPlace();
}

void RepositoryRequests::useNewPlace() {
  daemon_->barRepository();
  daemon_->worker().repositoryChanged();
  daemon_->worker().reconsiderAll();
}

EngineAnswer RepositoryRequests::tryKey(const std::string& key, EngineJob& job) {
  Trial trial(*daemon_, engine_, key);
  return trial.engine().probe(job);
}

PropertyList RepositoryRequests::exportKey(const PropertyList&) {
  const std::optional<RepositoryConfig> configuration = daemon_->files().configuration();
  const std::string key = daemon_->files().key();
  if (!configuration || key.empty()) {
    return errorAnswer("No repository has been set up yet.");
  }
  return PropertyList::dictionary({{"key", key},
                                   {"location", configuration->publicLocation()},
                                   {"repositoryId", configuration->repositoryId},
                                   {"computerNumber", configuration->computerNumber},
                                   {"hostName", configuration->hostName}});
}

PropertyList RepositoryRequests::importKey(const PropertyList& request) {
  return change([&](EngineJob& job) {
    const std::string key = keyTextFrom(std::string(request["key"].string()));
    if (const EngineAnswer answer = tryKey(key, job); !answer) {
      return errorAnswer(answer.detail);
    }
    daemon_->files().setKey(key);
    daemon_->worker().repositoryChanged();
    return PropertyList::dictionary(PropertyList::Entries());
  });
}

PropertyList RepositoryRequests::verifyKey(const PropertyList& request) {
  Call call(*this);
  try {
    const EngineAnswer answer = tryKey(keyTextFrom(std::string(request["key"].string())), call.job);
    return answer || answer.health == Health::wrongKey
               ? PropertyList::dictionary({{"matches", static_cast<bool>(answer)}})
               : errorAnswer(answer.detail);
  } catch (const std::exception& error) {
    return errorAnswer(error.what());
  }
}

PropertyList RepositoryRequests::addPassphrase(const PropertyList& request) {
  return change([&](EngineJob& job) {
    const EngineAnswer answer = daemon_->engine().addKey(std::string(request["passphrase"].string()), job);
    return answer ? PropertyList::dictionary(PropertyList::Entries()) : errorAnswer(answer.detail);
  });
}

}  // namespace keldane
