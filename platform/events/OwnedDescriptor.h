// An owner of one descriptor.
#pragma once

#include "platform/events/AppleEvents.h"

namespace keldane {

/// Owns a descriptor, which is null at first, and disposes of it at the end of the scope.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  ~OwnedDescriptor() { AEDisposeDesc(&desc_); }
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

  AEDesc* get() { return &desc_; }
  const AEDesc* get() const { return &desc_; }

 private:
  AEDesc desc_{typeNull, nullptr};
};

}  // namespace keldane
