#include "clients/core/HealthText.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace keldane {

namespace {

constexpr std::pair<std::string_view, std::string_view> kHealthTexts[] = {
    {"ready", "ready"},
    {"notSetUp", "not set up"},
    {"missing", "gone: there was a repository at its place, and there is none now"},
    {"otherRepository", "another one: its place holds a repository that is not this computer's"},
    {"wrongKey", "closed: the key does not open it"},
    {"notConnected", "away: its disk is not connected"},
    {"unreachable", "away: the network or the server cannot be reached"},
    {"denied", "closed: the system or the server refuses access"},
    {"locked", "busy: another computer, or one that crashed, holds a lock"},
    {"full", "full: no room is left, or the quota is used up"},
    {"damaged", "damaged: what is stored is not what it was"},
    {"engineMissing", "out of use: the storage program restic is not installed"},
    {"engineTooOld", "out of use: the storage program restic is too old"},
    {"failed", "failing"},
};

}  // namespace

std::string healthText(std::string_view health) {
  const auto* const found = std::find_if(std::begin(kHealthTexts), std::end(kHealthTexts),
                                         [&](const auto& entry) { return entry.first == health; });
  return std::string(found == std::end(kHealthTexts) ? health : found->second);
}

}  // namespace keldane
