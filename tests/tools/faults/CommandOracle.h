// Computes the messages that a command may have sent to the daemon over a faulty connection, and the states
// that the daemon's files may then have.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/host/FourCharCode.h"
#include "tests/tools/faults/proxy/FaultPlan.h"

namespace keldane::testing {

constexpr std::uint32_t kNoCommand = 0;
constexpr std::uint32_t kBackup = fourCharCode("r2d<");
constexpr std::uint32_t kExclude = fourCharCode("r2d=");
constexpr std::uint32_t kBackupASAP = fourCharCode("r2d>");

/// A request that changes something and has no answer.
struct Order {
  std::string selector;
  std::string path;
  bool operator==(const Order&) const = default;
};
using Orders = std::vector<Order>;

/// The orders that a command sends: one for each path. "As soon as possible" sends two: the first includes
/// the file in the backup, the second prefers it. All orders for one path come before those for the next.
Orders ordersOf(std::uint32_t command, const std::vector<std::string>& paths);

/// The orders among the bytes that were sent to the daemon, in the order in which they arrived.
Orders ordersIn(const std::string& forwarded);

/// Whether a question follows an order among those bytes. Its answer may reflect the order's effect.
bool asksAfterOrder(const std::string& forwarded);

/// Explains why a connection with this plan cannot have delivered `arrived` when `sent` was sent; empty when
/// it can.
///
/// A client sends its orders in sequence until its link has ended. So a beginning of them arrives, and all of
/// them when every question got its answer. Lost bytes remove single orders. A message that is repeated or
/// sent out of turn repeats or reorders orders. A changed byte can turn an order into anything.
std::string misdelivery(const FaultPlan& plan, const Orders& arrived, const Orders& sent);

/// The state in which the daemon has a file that no rule included before.
enum class Standing : std::uint8_t { leftOut, included, preferred };

/// The states that a file may have after these orders. `certain` is false when messages around them could not
/// be read; then any order may not have been carried out. A file that is not included cannot be preferred.
std::set<Standing> possibleStandings(const Orders& arrived, const std::string& path, bool certain);

}  // namespace keldane::testing
