#include "clients/preferences/words/AlertLimit.h"

namespace keldane {

bool AlertLimit::mayTell(const std::string& sentence, double now) {
  constexpr double kInterval = 86400;
  std::erase_if(told_, [&](const auto& each) { return now - each.second >= kInterval; });
  return told_.emplace(sentence, now).second;
}

}  // namespace keldane
