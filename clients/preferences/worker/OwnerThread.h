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

/// The outcome of a question to the second socket.
struct OwnerAnswer {
  enum class Kind {
    answered,     ///< `values` holds it
    refused,      ///< `problem` is the daemon's own sentence
    forbidden,    ///< only root and the daemon's own user may ask
    unreachable,  ///< there is no daemon, or it has closed the connection
  };
  Kind kind = Kind::unreachable;
  PropertyList values;
  std::string problem;

  explicit operator bool() const { return kind == Kind::answered; }
};

/// Asks one question after another, each on a connection of its own. An answer may take any time, so a
/// program has one thread for quick questions and another for slow ones. Owned by the program's first thread,
/// on which all operations are called; `deliver` is called on this thread.
class OwnerThread {
 public:
  using Then = std::function<void(const OwnerAnswer&)>;
  /// Carries a piece of work to the thread that wants the answer.
  using Deliver = std::function<void(std::function<void()>)>;

  /// `socketPath` is the path of the first socket.
  OwnerThread(std::string socketPath, Deliver deliver);
  ~OwnerThread();
  OwnerThread(const OwnerThread&) = delete;
  OwnerThread& operator=(const OwnerThread&) = delete;

  /// Asks after all earlier questions; `then` is delivered with the answer.
  void ask(std::string_view selector, PropertyList::Entries request, Then then);
  /// The number of questions that have not been answered yet.
  std::size_t waiting() const;
  /// Ends the thread. Returns false when a question has not been answered within this time. Waiting questions
  /// are dropped, and nothing is delivered after a return of true.
  bool end(std::chrono::milliseconds patience);

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace keldane
