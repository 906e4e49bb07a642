// What a command may have told the daemon over a faulty connection, and what the daemon then makes of its
// files.
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

/// A message that changes something and has no answer.
struct Order {
  std::string selector;
  std::string path;
  bool operator==(const Order&) const = default;
};
using Orders = std::vector<Order>;

/// What a command sends: one message for each path, and "as soon as possible" two, of which the first brings
/// the file into the backup and the second prefers it. All of one path come before those of the next.
Orders ordersOf(std::uint32_t command, const std::vector<std::string>& paths);

/// The orders among the bytes that went out to the daemon, as they came.
Orders ordersIn(const std::string& forwarded);

/// Whether a question follows an order among those bytes. Its answer may tell of what the order did.
bool asksAfterOrder(const std::string& forwarded);

/// Why orders cannot have arrived over a connection with that plan when these were sent; empty when they can.
///
/// A client sends them in their order until its link has ended, so what arrives is a beginning, and all of it
/// when every question got its answer. Bytes that are lost on the way take single ones out of it, a message
/// that goes out twice or out of turn makes them come so, and a changed byte makes anything of them.
std::string misdelivery(const FaultPlan& plan, const Orders& arrived, const Orders& sent);

/// What the daemon makes of a file that nothing included before.
enum class Standing : std::uint8_t { leftOut, included, preferred };

/// What a file may be after these orders. When it is not certain that each was carried out, which it is not
/// if what arrived around it could not be read, any of them may have been left out. A file that is not
/// included cannot be preferred.
std::set<Standing> possibleStandings(const Orders& arrived, const std::string& path, bool certain);

}  // namespace keldane::testing
