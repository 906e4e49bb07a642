#include "Common/transport/SocketLimits.h"

namespace keldane {

bool ByteBudget::take(std::size_t bytes) {
  const ScopedLock guard(mutex_);
  if (bytes > left_ || (whole_ && !whole_->take(bytes))) {
    return false;
  }
  left_ -= bytes;
  return true;
}

void ByteBudget::giveBack(std::size_t bytes) {
  const ScopedLock guard(mutex_);
  left_ += bytes;
  if (whole_) {
    whole_->giveBack(bytes);
  }
}

std::size_t ByteBudget::left() const {
  const ScopedLock guard(mutex_);
  return left_;
}

ByteBudget::Share::~Share() {
  if (taken_ > 0) {
    budget_->giveBack(taken_);
  }
}

bool ByteBudget::Share::grow(std::size_t bytes) {
  if (!budget_) {
    return true;
  }
  if (!budget_->take(bytes)) {
    return false;
  }
  taken_ += bytes;
  return true;
}

}  // namespace keldane
