// Calls to objects that may be absent.
#pragma once

#include <functional>
#include <type_traits>
#include <utility>

namespace keldane {

/// Sends an operation to an object that may be absent: `sendTo(node, &KeldaneFileNode::state)`. An operation
/// on an absent object does nothing and yields zero, false or absent. The whole system treats a missing
/// daemon in this way. `receiver` is a raw or smart pointer.
template <class Pointer, class Operation, class... Arguments>
auto sendTo(const Pointer& receiver, Operation operation, Arguments&&... arguments) {
  using Result =
      std::decay_t<decltype(std::invoke(operation, *receiver, std::forward<Arguments>(arguments)...))>;
  if constexpr (std::is_void_v<Result>) {
    if (receiver) {
      std::invoke(operation, *receiver, std::forward<Arguments>(arguments)...);
    }
  } else {
    return receiver ? Result(std::invoke(operation, *receiver, std::forward<Arguments>(arguments)...))
                    : Result();
  }
}

}  // namespace keldane
