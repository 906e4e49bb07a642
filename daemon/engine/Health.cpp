#include "daemon/engine/BackupEngine.h"

namespace keldane {

const char* healthWord(Health health) {
  switch (health) {
    case Health::ready:
      return "ready";
    case Health::notSetUp:
      return "notSetUp";
    case Health::missing:
      return "missing";
    case Health::otherRepository:
      return "otherRepository";
    case Health::wrongKey:
      return "wrongKey";
    case Health::notConnected:
      return "notConnected";
    case Health::unreachable:
      return "unreachable";
    case Health::denied:
      return "denied";
    case Health::locked:
      return "locked";
    case Health::full:
      return "full";
    case Health::damaged:
      return "damaged";
    case Health::engineMissing:
      return "engineMissing";
    case Health::engineTooOld:
      return "engineTooOld";
    case Health::cancelled:
      return "cancelled";
    case Health::failed:
      break;
  }
  return "failed";
}

EngineAnswer BackupEngine::keys(std::vector<KeyRecord>& /*found*/, EngineJob& /*job*/) {
  return {Health::failed, "The engine tells of no keys."};
}

EngineAnswer BackupEngine::removeKey(const std::string& /*id*/, EngineJob& /*job*/) {
  return {Health::failed, "The engine removes no keys."};
}

EngineAnswer BackupEngine::initializeLike(const RepositoryFiles& /*other*/, EngineJob& job) {
  return initialize(job);
}

EngineAnswer BackupEngine::copyFrom(const RepositoryFiles& /*other*/,
                                    const std::function<void(std::size_t)>& /*copied*/, EngineJob& /*job*/) {
  return {Health::failed, "The engine copies nothing."};
}

EngineAnswer BackupEngine::repositoryId(std::string& /*id*/, EngineJob& /*job*/) {
  return {Health::failed, "The engine knows no ids of repositories."};
}

}  // namespace keldane
