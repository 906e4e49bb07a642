#include "tests/tools/faults/CommandOracle.h"

#include <algorithm>
#include <string_view>

#include "fuzz/FrameStream.h"
#include "platform/plist/PropertyListSerialization.h"

namespace keldane::testing {

namespace {

constexpr std::string_view kInclude = "addFileToBackup:";
constexpr std::string_view kLeaveOut = "removeFileFromBackup:";
constexpr std::string_view kPrefer = "setPriorityBackup:";

// Positions in a request's list.
constexpr std::size_t kSelectorAt = 2;
constexpr std::size_t kFirstArgumentAt = 5;

bool isOrder(std::string_view selector) {
  return selector == kInclude || selector == kLeaveOut || selector == kPrefer;
}

/// All messages that can be read as requests, orders or not.
Orders requestsIn(const std::string& forwarded) {
  Orders requests;
  const BytesView bytes{reinterpret_cast<const std::uint8_t*>(forwarded.data()), forwarded.size()};
  for (const fuzzing::Frame& frame : fuzzing::FrameStream(bytes).frames) {
    if (frame.type != kRequestFrame) {
      continue;
    }
    const PropertyList request = PropertyListSerialization::propertyListFromData(frame.payload, nullptr);
    if (request.isArray()) {
      requests.push_back(
          {std::string(request[kSelectorAt].string()), std::string(request[kFirstArgumentAt].string())});
    }
  }
  return requests;
}

/// Whether `part` is `whole` without some of its orders.
bool isPartOf(const Orders& part, const Orders& whole) {
  auto next = whole.begin();
  return std::all_of(part.begin(), part.end(), [&](const Order& order) {
    next = std::find(next, whole.end(), order);
    return next != whole.end() && next++ != whole.end();
  });
}

}  // namespace

Orders ordersOf(std::uint32_t command, const std::vector<std::string>& paths) {
  Orders orders;
  for (const std::string& path : paths) {
    if (command == kBackup || command == kBackupASAP) {
      orders.push_back({std::string(kInclude), path});
    }
    if (command == kBackupASAP) {
      orders.push_back({std::string(kPrefer), path});
    }
    if (command == kExclude) {
      orders.push_back({std::string(kLeaveOut), path});
    }
  }
  return orders;
}

Orders ordersIn(const std::string& forwarded) {
  Orders orders = requestsIn(forwarded);
  std::erase_if(orders, [](const Order& request) { return !isOrder(request.selector); });
  return orders;
}

bool asksAfterOrder(const std::string& forwarded) {
  const Orders all = requestsIn(forwarded);
  const auto isOne = [](const Order& request) { return isOrder(request.selector); };
  return !std::all_of(std::find_if(all.begin(), all.end(), isOne), all.end(), isOne);
}

std::string misdelivery(const FaultPlan& plan, const Orders& arrived, const Orders& sent) {
  if (plan.effect() == Effect::whole) {
    return arrived == sent ? "" : "not every order has arrived, once and in turn";
  }
  switch (plan.of(Direction::requests).effect()) {
    case Effect::whole:
      return arrived.size() <= sent.size() && std::equal(arrived.begin(), arrived.end(), sent.begin())
                 ? ""
                 : "what has arrived is no beginning of the orders";
    case Effect::missing:
      return isPartOf(arrived, sent) ? "" : "an order has arrived out of turn";
    case Effect::misplaced:
      return std::all_of(
                 arrived.begin(), arrived.end(),
                 [&](const Order& order) { return std::find(sent.begin(), sent.end(), order) != sent.end(); })
                 ? ""
                 : "an order has arrived that nobody sent";
    case Effect::altered:
      return "";
  }
  return "";
}

std::set<Standing> possibleStandings(const Orders& arrived, const std::string& path, bool certain) {
  std::set<Standing> possible = {Standing::leftOut};
  for (const Order& order : arrived) {
    if (order.path != path) {
      continue;
    }
    std::set<Standing> next = certain ? std::set<Standing>() : possible;
    for (const Standing standing : possible) {
      if (order.selector == kLeaveOut) {
        next.insert(Standing::leftOut);
      } else if (order.selector == kInclude) {
        next.insert(std::max(standing, Standing::included));
      } else {
        next.insert(standing == Standing::leftOut ? standing : Standing::preferred);
      }
    }
    possible = std::move(next);
  }
  return possible;
}

}  // namespace keldane::testing
