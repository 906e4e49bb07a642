// The fault proxy as a child process, and the messages to it.
#pragma once

#include <memory>
#include <string>

#include "platform/files/Descriptor.h"
#include "tests/tools/faults/campaign/ChildProcess.h"
#include "tests/tools/faults/proxy/FaultPlan.h"
#include "tests/tools/faults/proxy/FaultProxy.h"

namespace keldane::testing {

/// Serves one connection after another. Failures throw std::runtime_error.
class ProxyProcess {
 public:
  ProxyProcess(const std::string& listenPath, const std::string& connectPath);
  /// Sets the plan of the next connection.
  void begin(const FaultPlan& plan);
  /// Whether the connection has ended, or is about to.
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
