// The fault proxy as a process, and what is said to it.
#pragma once

#include <memory>
#include <string>

#include "platform/files/Descriptor.h"
#include "tests/tools/faults/campaign/ChildProcess.h"
#include "tests/tools/faults/proxy/FaultPlan.h"
#include "tests/tools/faults/proxy/FaultProxy.h"

namespace keldane::testing {

/// Serves one connection after another. What fails throws std::runtime_error.
class ProxyProcess {
 public:
  ProxyProcess(const std::string& listenPath, const std::string& connectPath);
  /// The plan of the next connection.
  void begin(const FaultPlan& plan);
  /// Whether the connection has ended, or does so in a moment.
  bool hasReport() const;
  ConnectionReport report();

 private:
  std::string readLine();

  Descriptor input_;
  Descriptor output_;
  std::string unread_;
  std::unique_ptr<Process> process_;
};

}  // namespace keldane::testing
