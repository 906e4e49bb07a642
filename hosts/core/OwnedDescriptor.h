// A descriptor that its holder gives back.
#pragma once

#include "platform/events/AppleEvents.h"

namespace keldane {

class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  ~OwnedDescriptor() { AEDisposeDesc(&desc_); }
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
  AEDesc* get() { return &desc_; }

 private:
  AEDesc desc_{typeNull, nullptr};
};

}  // namespace keldane
