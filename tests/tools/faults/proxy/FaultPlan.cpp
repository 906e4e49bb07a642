#include "tests/tools/faults/proxy/FaultPlan.h"

#include <algorithm>
#include <array>
#include <random>
#include <sstream>
#include <string_view>

namespace keldane::testing {

namespace {

constexpr std::array<std::string_view, 2> kDirections = {"requests", "answers"};
constexpr std::array<std::string_view, 13> kKinds = {"delay", "split", "join",  "garbage", "cut",
                                                     "stop",  "close", "early", "repeat",  "reorder",
                                                     "type",  "value", "flip"};

// A reader looks for the marker in steps of its length.
constexpr std::uint32_t kStep = 36;

template <class Name, std::size_t count>
std::optional<Name> named(const std::array<std::string_view, count>& names, const std::string& word) {
  const auto found = std::find(names.begin(), names.end(), word);
  return found == names.end() ? std::nullopt : std::optional(static_cast<Name>(found - names.begin()));
}

/// Random numbers that are the same on every system; the standard library's distributions are not.
class Dice {
 public:
  Dice(std::uint64_t seed, std::uint32_t cycle) {
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32U), cycle};
    engine_.seed(sequence);
  }
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }
  std::uint32_t from(std::uint32_t first, std::uint32_t last) { return first + below(last - first + 1); }
  template <std::size_t count>
  std::uint32_t oneOf(const std::array<std::uint32_t, count>& values) {
    return values[below(count)];
  }

 private:
  std::mt19937 engine_;
};

// A file needs six questions, and a command sends up to two messages: 2,000 bytes of requests, 3,000 of
// answers. Headers and the bytes after them are hit as often as all the rest.
std::uint32_t somewhere(Dice& dice, Direction direction) {
  return dice.below(2) == 0 ? dice.below(2 * kHeader)
                            : dice.below(direction == Direction::requests ? 2000 : 3000);
}

std::uint32_t garbageLength(Dice& dice) {
  switch (dice.below(4)) {
    case 0:
      return kStep * dice.from(1, 40);
    case 1:
      return dice.below(100000);
    default:
      return dice.from(1, 3 * kStep);
  }
}

Fault randomFault(Dice& dice) {
  Fault fault;
  fault.direction = static_cast<Direction>(dice.below(2));
  fault.kind = static_cast<FaultKind>(dice.below(kKinds.size()));
  fault.at = dice.below(fault.direction == Direction::requests ? 8 : 6);
  switch (fault.kind) {
    case FaultKind::delay:
      fault.amount = dice.from(1, 8);
      break;
    case FaultKind::split:
      fault.amount = dice.from(1, 2);
      break;
    case FaultKind::join:
      fault.amount = dice.from(2, 4);
      break;
    case FaultKind::garbage:
      fault.amount = garbageLength(dice);
      break;
    case FaultKind::cut:
      fault.at = somewhere(dice, fault.direction);
      fault.amount = dice.below(4) == 0 ? kStep : dice.from(1, 80);
      break;
    case FaultKind::stop:
    case FaultKind::close:
      fault.at = somewhere(dice, fault.direction);
      break;
    case FaultKind::early:
      fault.at = dice.below(2);
      fault.amount = dice.from(1, 6);
      break;
    case FaultKind::repeat:
      fault.amount = dice.below(3);
      break;
    case FaultKind::reorder:
      break;
    case FaultKind::swapType:
      fault.amount = dice.oneOf(std::array<std::uint32_t, 7>{0, 1, 2, 3, 256, 0x80000002U, 0xFFFFFFFFU});
      break;
    case FaultKind::swapValue:
      fault.amount = dice.below(16);
      break;
    case FaultKind::flip:
      fault.at = somewhere(dice, fault.direction);
      fault.amount = dice.below(8);
      break;
  }
  return fault;
}

}  // namespace

Effect Fault::effect() const {
  switch (kind) {
    case FaultKind::delay:
    case FaultKind::split:
    case FaultKind::join:
      return Effect::whole;
    case FaultKind::garbage:
      return amount % kStep == 0 ? Effect::whole : Effect::missing;
    case FaultKind::cut:
    case FaultKind::stop:
    case FaultKind::close:
      return Effect::missing;
    case FaultKind::early:
      return at == 1 ? Effect::whole : Effect::misplaced;
    case FaultKind::repeat:
    case FaultKind::reorder:
      return Effect::misplaced;
    case FaultKind::swapType:
    case FaultKind::swapValue:
    case FaultKind::flip:
      return Effect::altered;
  }
  return Effect::altered;
}

std::string Fault::name() const {
  std::string words(kDirections[static_cast<std::size_t>(direction)]);
  return words.append(" ").append(kKinds[static_cast<std::size_t>(kind)]);
}

FaultPlan FaultPlan::random(std::uint64_t seed, std::uint32_t cycle) {
  Dice dice(seed, cycle);
  FaultPlan plan;
  // Most plans have one fault, because that shows its effect best.
  for (std::uint32_t left = dice.below(4) == 0 ? dice.from(2, 3) : 1; left > 0; --left) {
    const Fault fault = randomFault(dice);
    // A fault that has only one place in a connection is added only once for each direction.
    if (plan.find(fault.direction, fault.kind) == nullptr || fault.kind == FaultKind::flip) {
      plan.faults.push_back(fault);
    }
  }
  return plan;
}

std::optional<FaultPlan> FaultPlan::parse(const std::string& text) {
  FaultPlan plan;
  std::istringstream all(text);
  for (std::string one; std::getline(all, one, ';');) {
    std::istringstream words(one);
    std::string direction;
    std::string kind;
    std::string more;
    Fault fault;
    if (!(words >> direction >> kind >> fault.at >> fault.amount) || words >> more) {
      return std::nullopt;
    }
    const auto knownDirection = named<Direction>(kDirections, direction);
    const auto knownKind = named<FaultKind>(kKinds, kind);
    if (!knownDirection || !knownKind) {
      return std::nullopt;
    }
    fault.direction = *knownDirection;
    fault.kind = *knownKind;
    plan.faults.push_back(fault);
  }
  return plan;
}

std::string FaultPlan::text() const {
  std::string all;
  for (const Fault& fault : faults) {
    all += (all.empty() ? "" : "; ") + fault.name() + ' ' + std::to_string(fault.at) + ' ' +
           std::to_string(fault.amount);
  }
  return all;
}

Effect FaultPlan::effect() const {
  Effect worst = Effect::whole;
  bool cut = false;
  for (const Fault& fault : faults) {
    worst = std::max(worst, fault.effect());
    cut |= fault.kind == FaultKind::cut;
  }
  // The missing bytes of a cut frame are taken from the next frame, if one comes without a question.
  const bool moreThanAskedFor =
      worst == Effect::misplaced || std::any_of(faults.begin(), faults.end(), [](const Fault& fault) {
        return fault.kind == FaultKind::early;
      });
  return cut && moreThanAskedFor ? Effect::altered : worst;
}

FaultPlan FaultPlan::of(Direction direction) const {
  FaultPlan plan = *this;
  std::erase_if(plan.faults, [&](const Fault& fault) { return fault.direction != direction; });
  return plan;
}

const Fault* FaultPlan::find(Direction direction, FaultKind kind) const {
  const auto found = std::find_if(faults.begin(), faults.end(),
                                  [&](const Fault& fault) { return fault.is(direction, kind); });
  return found == faults.end() ? nullptr : &*found;
}

}  // namespace keldane::testing
