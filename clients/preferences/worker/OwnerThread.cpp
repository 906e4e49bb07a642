#include "clients/preferences/worker/OwnerThread.h"

#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "Common/DaemonText.h"
#include "clients/core/OwnerLink.h"
#include "clients/core/words/Printable.h"

namespace keldane {

namespace {

constexpr std::chrono::milliseconds kOwnerPatience{1000};

OwnerAnswer answerTo(const std::string& socketPath, const std::string& selector,
                     const PropertyList& request) {
  OwnerAnswer answer;
  OwnerLink link(socketPath);
  if (!link.connect()) {
    if (access(link.path().c_str(), W_OK) != 0 && errno == EACCES) {
      answer.kind = OwnerAnswer::Kind::forbidden;
    }
    return answer;
  }
  answer.values = link.call(selector, {RawValue::of<'@'>(request)}).as<'@'>();
  if (!answer.values.isDictionary()) {
    return answer;
  }
  if (answer.values["error"]) {
    answer.kind = OwnerAnswer::Kind::refused;
    answer.problem = printable(daemonText(answer.values["error"].description()));
    return answer;
  }
  answer.kind = OwnerAnswer::Kind::answered;
  return answer;
}

}  // namespace

/// State that the thread and its owner share; it lives until both have gone.
struct OwnerThread::Shared {
  struct Question {
    std::string selector;
    PropertyList request;
    Then then;
  };

  std::string socketPath;
  Deliver deliver;
  mutable std::mutex mutex;
  std::condition_variable changed;
  // Guarded by the mutex:
  std::deque<Question> questions;
  bool busy = false, over = false, ended = false;

  void run() {
    std::unique_lock guard(mutex);
    for (;;) {
      changed.wait(guard, [this] { return over || !questions.empty(); });
      if (over) {
        break;
      }
      Question question = std::move(questions.front());
      questions.pop_front();
      busy = true;
      guard.unlock();
      OwnerAnswer answer = answerTo(socketPath, question.selector, question.request);
      guard.lock();
      busy = false;
      if (!over) {
        deliver([then = std::move(question.then), answer = std::move(answer)] { then(answer); });
      }
    }
    ended = true;
    changed.notify_all();
  }
};

OwnerThread::OwnerThread(std::string socketPath, Deliver deliver) : shared_(std::make_shared<Shared>()) {
  shared_->socketPath = std::move(socketPath);
  shared_->deliver = std::move(deliver);
  thread_ = std::thread([shared = shared_] { shared->run(); });
}

OwnerThread::~OwnerThread() {
  if (!end(kOwnerPatience)) {
    thread_.detach();
  }
}

void OwnerThread::ask(std::string_view selector, PropertyList::Entries request, Then then) {
  const std::lock_guard guard(shared_->mutex);
  shared_->questions.push_back(
      {std::string(selector), PropertyList::dictionary(std::move(request)), std::move(then)});
  shared_->changed.notify_all();
}

std::size_t OwnerThread::waiting() const {
  const std::lock_guard guard(shared_->mutex);
  return shared_->questions.size() + (shared_->busy ? 1 : 0);
}

bool OwnerThread::end(std::chrono::milliseconds patience) {
  {
    std::unique_lock guard(shared_->mutex);
    shared_->over = true;
    shared_->changed.notify_all();
    if (!shared_->changed.wait_for(guard, patience, [this] { return shared_->ended; })) {
      return false;
    }
  }
  if (thread_.joinable()) {
    thread_.join();
  }
  return true;
}

}  // namespace keldane
