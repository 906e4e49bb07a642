// A thread that asks the daemon's second socket, so that the window never has to wait for it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// What came of a question to the second socket.
struct OwnerAnswer {
  enum class Kind {
    answered,     ///< `values` holds it
    refused,      ///< `problem` is the daemon's own sentence
    forbidden,    ///< only root and the daemon's own user may ask
    unreachable,  ///< nobody is there, or has hung up
  };
  Kind kind = Kind::unreachable;
  PropertyList values;
  std::string problem;

  explicit operator bool() const { return kind == Kind::answered; }
};

/// Asks one question after another, each on a connection of its own. An answer may take as long as it likes,
/// so a program has one of these for what is answered at once and another for what is not. Owned by the
/// program's first thread, on which all of this is called; `deliver` is called on the thread.
class OwnerThread {
 public:
  using Then = std::function<void(const OwnerAnswer&)>;
  /// Carries a piece of work to where the answers are wanted.
  using Deliver = std::function<void(std::function<void()>)>;

  /// `socketPath` is the first socket's.
  OwnerThread(std::string socketPath, Deliver deliver);
  ~OwnerThread();
  OwnerThread(const OwnerThread&) = delete;
  OwnerThread& operator=(const OwnerThread&) = delete;

  /// Asks after what was asked before; `then` is delivered with the answer.
  void ask(std::string_view selector, PropertyList::Entries request, Then then);
  /// How many questions have not been answered yet.
  std::size_t waiting() const;
  /// Ends the thread; false when a question has not been answered within this time. What waits is dropped,
  /// and nothing is delivered after true.
  bool end(std::chrono::milliseconds patience);

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace keldane
