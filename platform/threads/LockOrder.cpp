#include "platform/threads/LockOrder.h"

#if defined(KELDANE_LOCK_ORDER)

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <new>
#include <span>

namespace keldane {

namespace {

using Locks = std::span<const LockRecord* const>;

// The record needs no destructor, so locks that a thread takes while it ends are recorded too.
struct Held {
  std::array<const LockRecord*, 64> locks;
  std::size_t count;
};
constinit thread_local Held tHeld{};

std::atomic<bool> gStopped = false;

Locks held() { return Locks(tHeld.locks).first(tHeld.count); }

bool isHeld(const LockRecord* lock) { return std::ranges::find(held(), lock) != held().end(); }

/// For each lock, the locks that were taken while it was held, and the situation in which that happened.
struct Graph {
  std::mutex mutex;
  std::map<const LockRecord*, std::map<const LockRecord*, std::string>> taken;
  LockOrder::Listener listener;

  /// The shortest path from one lock to another, with one sentence for each step. Empty when there is none.
  /// The caller holds the mutex.
  std::string way(const LockRecord* from, const LockRecord* to) const {
    std::map<const LockRecord*, std::string> ways = {{from, ""}};
    std::deque<const LockRecord*> next = {from};
    for (; !next.empty() && !ways.contains(to); next.pop_front()) {
      const auto steps = taken.find(next.front());
      if (steps == taken.end()) {
        continue;
      }
      for (const auto& [lock, how] : steps->second) {
        if (ways.emplace(lock, ways[next.front()] + "\n  " + how).second) {
          next.push_back(lock);
        }
      }
    }
    return ways[to];
  }
};

Graph& graph() {
  // It is never destroyed, because locks may be destroyed after everything else. It takes no memory from the
  // heap, because a lock's destructor may be the first to ask for it and must not fail.
  alignas(Graph) static std::byte room[sizeof(Graph)];
  static Graph& graph = *new (room) Graph;
  return graph;
}

void report(const std::string& finding) {
  LockOrder::Listener listener;
  {
    const std::lock_guard guard(graph().mutex);
    listener = graph().listener;
  }
  if (listener) {
    listener(finding);
    return;
  }
  std::fprintf(stderr, "%s\n", finding.c_str());
  std::abort();
}

}  // namespace

void LockOrder::setListener(Listener listener) {
  const std::lock_guard guard(graph().mutex);
  graph().listener.swap(listener);
}

void LockOrder::stop() { gStopped = true; }

LockRecord::~LockRecord() {
  const std::lock_guard guard(graph().mutex);
  graph().taken.erase(this);
  for (auto& [lock, later] : graph().taken) {
    later.erase(this);
  }
}

void LockRecord::comesBefore(const LockRecord& later) const {
  if (gStopped) {
    return;
  }
  const std::lock_guard guard(graph().mutex);
  graph().taken[this].emplace(&later,
                              std::string(traits_.name) + " is stated to come before " + later.traits_.name);
}

void LockRecord::willTake() const {
  if (gStopped || held().empty()) {
    return;
  }
  std::string names;
  for (const LockRecord* lock : held()) {
    names += (names.empty() ? "" : ", ") + std::string(lock->traits_.name);
  }
  if (isHeld(this)) {
    report(std::string(traits_.name) + " is taken again by a thread that holds " + names);
    return;
  }
  std::string found;
  {
    const std::lock_guard guard(graph().mutex);
    for (const LockRecord* lock : held()) {
      if (lock->traits_.innermost || (lock->traits_.leaf && !traits_.innermost)) {
        found = std::string("Nothing is to be taken under ") + lock->traits_.name +
                ", but a thread that holds " + names + " takes " + traits_.name;
      }
      const std::string how = "a thread that held " + names + " took " + traits_.name;
      if (!graph().taken[lock].emplace(this, how).second) {
        continue;
      }
      const std::string back = graph().way(this, lock);
      if (!back.empty()) {
        found = "A thread that holds " + names + " takes " + traits_.name + ", but";
        found += back;
      }
    }
  }
  if (!found.empty()) {
    report(found);
  }
}

void LockRecord::willTakeAgain() const {
  if (!isHeld(this)) {
    willTake();
  }
}

void LockRecord::willWait() const {
  for (const LockRecord* lock : held()) {
    if (lock != this && !lock->traits_.heldWhileWaiting) {
      report(std::string("A thread waits for a condition of ") + traits_.name + " while it holds " +
             lock->traits_.name);
    }
  }
  willTake();
}

void LockRecord::taken() const {
  if (tHeld.count == tHeld.locks.size()) {
    report(std::string("A thread takes more locks than can be noted, the last of them ") + traits_.name);
    return;
  }
  tHeld.locks[tHeld.count++] = this;
}

void LockRecord::released() const {
  const auto begin = tHeld.locks.begin();
  const auto end = begin + static_cast<std::ptrdiff_t>(tHeld.count);
  const auto last = std::find(std::make_reverse_iterator(end), std::make_reverse_iterator(begin), this);
  if (last == std::make_reverse_iterator(begin)) {
    report(std::string(traits_.name) + " is released by a thread that does not hold it");
    return;
  }
  std::copy(last.base(), end, last.base() - 1);
  --tHeld.count;
}

}  // namespace keldane

#endif
