#include "tests/tools/faults/proxy/FaultStream.h"

#include <linux/sockios.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "tests/tools/faults/proxy/FaultyFrames.h"

namespace keldane::testing {

namespace {

using Clock = std::chrono::steady_clock;

// The time to wait for the frames that are to be joined in one write.
constexpr auto kJoinPatience = std::chrono::milliseconds(5);

}  // namespace

FaultStream::FaultStream(Direction direction, const FaultPlan& plan, const std::vector<std::string>& foretold,
                         int from, int to)
    : direction_(direction), plan_(plan), foretold_(foretold), from_(from), to_(to) {
  if (const Fault* fault = find(FaultKind::early)) {
    const std::size_t count = std::min<std::size_t>(fault->amount, foretold.size());
    for (std::size_t i = 0; i < count; ++i) {
      queue(foretold[i]);
      if (fault->at == 1) {
        leftOut_.insert(static_cast<std::uint32_t>(i));
      }
    }
  }
}

bool FaultStream::read() {
  char block[65536];
  std::size_t count = sizeof(block);
  if (const Fault* fault = find(FaultKind::stop)) {
    count = std::min(count, fault->at - bytesRead_);
  }
  const ssize_t got = ::recv(from_, block, count, 0);
  if (got <= 0) {
    ended_ = true;
    return false;
  }
  bytesRead_ += static_cast<std::size_t>(got);
  unread_.append(block, static_cast<std::size_t>(got));
  takeFrames();
  return true;
}

bool FaultStream::write(bool all) {
  while (!isClosing() && !pieces_.empty() && (all || pieces_.front().due <= Clock::now())) {
    const Piece piece = std::move(pieces_.front());
    pieces_.pop_front();
    if (!transmit(piece)) {
      return false;
    }
  }
  return !isClosing();
}

void FaultStream::takeFrames() {
  while (unread_.size() >= kHeader) {
    if (!unread_.starts_with(kMarker)) {
      // Bytes that are no frame are passed on unchanged.
      queue(std::exchange(unread_, {}));
      return;
    }
    const std::size_t size = kHeader + numberAt(unread_, kLengthAt);
    if (unread_.size() < size) {
      return;
    }
    frames_.push_back(unread_.substr(0, size));
    unread_.erase(0, size);
    pass(static_cast<std::uint32_t>(frames_.size() - 1), frames_.back());
  }
}

void FaultStream::pass(std::uint32_t index, std::string frame) {
  if (leftOut_.contains(index)) {
    return;
  }
  if (const Fault* fault = striking(FaultKind::swapType, index)) {
    setNumberAt(frame, kTypeAt, fault->amount);
  }
  if (const Fault* fault = striking(FaultKind::swapValue, index)) {
    frame = withValueSwapped(frame, fault->amount);
  }
  if (striking(FaultKind::reorder, index) != nullptr && index + 1 < foretold_.size()) {
    queue(foretold_[index + 1]);
    leftOut_.insert(index + 1);
  }
  if (const Fault* fault = striking(FaultKind::garbage, index)) {
    queue(garbageOf(*fault));
  }
  const Fault* split = find(FaultKind::split);
  const Fault* delay = striking(FaultKind::delay, index);
  const Fault* join = find(FaultKind::join);
  if (join != nullptr && index > join->at && !pieces_.empty() && pieces_.back().joins > 0) {
    Piece& piece = pieces_.back();
    piece.bytes += frame;
    piece.due = --piece.joins == 0 ? Clock::now() : piece.due;
  } else {
    queue(frame, delay == nullptr ? std::chrono::milliseconds(0) : std::chrono::milliseconds(delay->amount));
    pieces_.back().isSplit = split != nullptr && index >= split->at && index - split->at < split->amount;
    if (join != nullptr && index == join->at && join->amount > 1) {
      pieces_.back().joins = join->amount - 1;
      pieces_.back().due = std::max(pieces_.back().due, Clock::now() + kJoinPatience);
    }
  }
  if (const Fault* fault = find(FaultKind::repeat)) {
    if (fault->at == index) {
      repeated_ = frame;
    }
    if (fault->at + fault->amount == index) {
      queue(repeated_);
    }
  }
}

void FaultStream::queue(std::string bytes, std::chrono::milliseconds delay) {
  pieces_.push_back({std::move(bytes), Clock::now() + delay});
}

bool FaultStream::transmit(const Piece& piece) {
  const Fault* cut = find(FaultKind::cut);
  std::string bytes;
  for (char byte : piece.bytes) {
    if (isClosing()) {
      break;
    }
    for (const Fault& fault : plan_.faults) {
      if (fault.is(direction_, FaultKind::flip) && fault.at == offset_) {
        byte = static_cast<char>(byte ^ static_cast<char>(1U << (fault.amount % 8)));
      }
    }
    if (cut == nullptr || offset_ < cut->at || offset_ - cut->at >= cut->amount) {
      bytes.push_back(byte);
    }
    ++offset_;
  }
  const std::size_t step = piece.isSplit ? 1 : std::max<std::size_t>(bytes.size(), 1);
  for (std::size_t at = 0; at < bytes.size(); at += step) {
    if (!send(std::string_view(bytes).substr(at, step))) {
      return false;
    }
    if (piece.isSplit) {
      waitUntilRead();
    }
  }
  return true;
}

bool FaultStream::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::send(to_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (written <= 0) {
      return false;
    }
    delivered_.append(bytes.substr(0, static_cast<std::size_t>(written)));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void FaultStream::waitUntilRead() const {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(1);
  int left = 0;
  while (ioctl(to_, SIOCOUTQ, &left) == 0 && left > 0 && Clock::now() < end) {
    sched_yield();
  }
}

}  // namespace keldane::testing
