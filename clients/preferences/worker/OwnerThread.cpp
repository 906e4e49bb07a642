#include "clients/preferences/worker/OwnerThread.h"

#include <unistd.h>

#include <cerrno>
#include <deque>
#include <optional>

#include "Common/DaemonText.h"
#include "clients/core/OwnerLink.h"
#include "clients/core/words/Printable.h"
#include "platform/threads/Mutex.h"

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
  Mutex mutex{{.name = "OwnerThread.mutex"}};
  Condition changed;
  std::deque<Question> questions KELDANE_GUARDED_BY(mutex);
  bool busy KELDANE_GUARDED_BY(mutex) = false;
  bool over KELDANE_GUARDED_BY(mutex) = false;
  bool ended KELDANE_GUARDED_BY(mutex) = false;

  void run() {
    while (std::optional<Question> question = next()) {
      OwnerAnswer answer = answerTo(socketPath, question->selector, question->request);
      const ScopedLock guard(mutex);
      busy = false;
      if (!over) {
        deliver([then = std::move(question->then), answer = std::move(answer)] { then(answer); });
      }
    }
    const ScopedLock guard(mutex);
    ended = true;
    changed.notifyAll();
  }

  /// Waits for a question. Absent when the thread is to end.
  std::optional<Question> next() {
    const ScopedLock guard(mutex);
    changed.wait(mutex, [this]() KELDANE_REQUIRES(mutex) { return over || !questions.empty(); });
    if (over) {
      return std::nullopt;
    }
    Question question = std::move(questions.front());
    questions.pop_front();
    busy = true;
    return question;
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
  const ScopedLock guard(shared_->mutex);
  shared_->questions.push_back(
      {std::string(selector), PropertyList::dictionary(std::move(request)), std::move(then)});
  shared_->changed.notifyAll();
}

std::size_t OwnerThread::waiting() const {
  const ScopedLock guard(shared_->mutex);
  return shared_->questions.size() + (shared_->busy ? 1 : 0);
}

bool OwnerThread::end(std::chrono::milliseconds patience) {
  {
    const ScopedLock guard(shared_->mutex);
    shared_->over = true;
    shared_->changed.notifyAll();
    const auto hasEnded = [this]() KELDANE_REQUIRES(shared_->mutex) { return shared_->ended; };
    if (!shared_->changed.waitFor(shared_->mutex, patience, hasEnded)) {
      return false;
    }
  }
  if (thread_.joinable()) {
    thread_.join();
  }
  return true;
}

}  // namespace keldane
