#include "log/KeldaneLog.h"

#include "platform/files/FileManager.h"

namespace keldane {

std::atomic<bool> gLoggingEnabled = false;

void KeldaneLogStart() {
  if (FileManager::fileExistsAtPath("/tmp/keldane_logging")) {
    gLoggingEnabled.store(true, std::memory_order_relaxed);
  }
}

}  // namespace keldane
