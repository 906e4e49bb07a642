#include "clients/core/words/HealthText.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "clients/core/words/Printable.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::pair<std::string_view, const char*> kHealthTexts[] = {
    {"ready", marked("ready")},
    {"notSetUp", marked("not set up")},
    {"missing", marked("gone: there was a backup at its place, and there is none now")},
    {"otherRepository", marked("another one: its place holds a backup that is not this computer's")},
    {"wrongKey", marked("closed: the key does not open it")},
    {"notConnected", marked("away: its disk is not connected")},
    {"unreachable", marked("away: the network or the server cannot be reached")},
    {"denied", marked("closed: the system or the server refuses access")},
    {"locked", marked("busy: another computer, or one that crashed, holds a lock")},
    {"full", marked("full: no room is left, or the quota is used up")},
    {"damaged", marked("damaged: what is stored is not what it was")},
    {"engineMissing", marked("out of use: the storage program restic is not installed")},
    {"engineTooOld", marked("out of use: the storage program restic is too old")},
    {"failed", marked("failing")},
};

}  // namespace

std::string healthText(std::string_view health) {
  const auto* const found = std::find_if(std::begin(kHealthTexts), std::end(kHealthTexts),
                                         [&](const auto& entry) { return entry.first == health; });
  return found == std::end(kHealthTexts) ? printable(health) : tr(found->second);
}

}  // namespace keldane
