#include "daemon/care/KeyChange.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "daemon/engine/DurableFile.h"

namespace keldane {

std::optional<KeyChange::Record> KeyChange::record() const {
  const std::optional<std::string> text = readPrivateFile(files_.folder().keyChange());
  if (!text) {
    return std::nullopt;
  }
  // The record has three lines, because no key contains a line end.
  Record record;
  std::istringstream lines(*text);
  if (!std::getline(lines, record.formerId) || !std::getline(lines, record.formerKey) ||
      !std::getline(lines, record.newKey)) {
    throw std::runtime_error("The file " + files_.folder().keyChange() + " is not what this program wrote.");
  }
  return record;
}

void KeyChange::keep(const Record& record) const {
  writeDurably(files_.folder().keyChange(),
               record.formerId + "\n" + record.formerKey + "\n" + record.newKey + "\n");
}

void KeyChange::forget() const { ::unlink(files_.folder().keyChange().c_str()); }

EngineAnswer KeyChange::run(EngineJob& job) {
  if (const EngineAnswer answer = goOn(job); !answer) {
    return answer;
  }
  std::vector<KeyRecord> keys;
  if (const EngineAnswer answer = engine_.keys(keys, job); !answer) {
    return answer;
  }
  const auto inUse = std::find_if(keys.begin(), keys.end(), [](const KeyRecord& key) { return key.inUse; });
  if (inUse == keys.end()) {
    return {Health::failed, "The repository does not tell which of its keys is in use."};
  }
  const Record record{inUse->id, files_.key(), newKeyText()};
  keep(record);
  if (const EngineAnswer answer = engine_.addKey(record.newKey, job); !answer) {
    forget();
    return answer;
  }
  return takeIntoUse(record, job);
}

EngineAnswer KeyChange::goOn(EngineJob& job) {
  const std::optional<Record> begun = record();
  if (!begun) {
    return {};
  }
  const std::string key = files_.key();
  if (key != begun->formerKey && key != begun->newKey) {
    forget();  // a person has set another key meanwhile
    return {};
  }
  const EngineAnswer answer = takeIntoUse(*begun, job);
  // With this answer the new key was never added, and the former one is in use again.
  return answer.health == Health::wrongKey ? EngineAnswer() : answer;
}

/// Puts the new key in place first, because the engine can only try the key that is in place.
EngineAnswer KeyChange::takeIntoUse(const Record& record, EngineJob& job) {
  files_.setKey(record.newKey);
  if (const EngineAnswer answer = engine_.probe(job); !answer) {
    files_.setKey(record.formerKey);
    if (answer.health == Health::wrongKey) {
      forget();
    }
    return answer;
  }
  if (EngineAnswer answer = removeFormer(record, job); !answer) {
    answer.detail =
        "The new key is in use, but the former one still opens the backup. It is taken out of use "
        "when the daemon begins the next time. " +
        answer.detail;
    return answer;
  }
  forget();
  return {};
}

EngineAnswer KeyChange::removeFormer(const Record& record, EngineJob& job) {
  std::vector<KeyRecord> keys;
  if (const EngineAnswer answer = engine_.keys(keys, job); !answer) {
    return answer;
  }
  const bool isThere =
      std::any_of(keys.begin(), keys.end(), [&](const KeyRecord& key) { return key.id == record.formerId; });
  return isThere ? engine_.removeKey(record.formerId, job) : EngineAnswer();
}

}  // namespace keldane
