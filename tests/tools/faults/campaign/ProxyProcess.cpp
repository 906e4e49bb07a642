#include "tests/tools/faults/campaign/ProxyProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <vector>

namespace keldane::testing {

ProxyProcess::ProxyProcess(const std::string& listenPath, const std::string& connectPath) {
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
    throw std::runtime_error("there are no pipes");
  }
  const Descriptor theirInput(in[0]);
  const Descriptor theirOutput(out[1]);
  input_ = Descriptor(in[1]);
  output_ = Descriptor(out[0]);
  process_ = std::make_unique<Process>(
      std::vector<std::string>{FAULT_PROXY_PROGRAM, "--listen", listenPath, "--connect", connectPath}, in[0],
      out[1]);
  if (readLine() != "ready") {
    throw std::runtime_error("the fault proxy does not listen");
  }
}

void ProxyProcess::begin(const FaultPlan& plan) {
  const std::string line = plan.text() + '\n';
  if (write(input_.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw std::runtime_error("the fault proxy does not listen any more");
  }
}

bool ProxyProcess::hasReport() const {
  pollfd source{output_.get(), POLLIN, 0};
  return poll(&source, 1, 50) == 1;
}

ConnectionReport ProxyProcess::report() {
  const std::optional<ConnectionReport> report = ConnectionReport::parse(readLine());
  if (!report) {
    throw std::runtime_error("the fault proxy has failed");
  }
  return *report;
}

std::string ProxyProcess::readLine() {
  std::size_t end = 0;
  while ((end = unread_.find('\n')) == std::string::npos) {
    char block[65536];
    const ssize_t got = read(output_.get(), block, sizeof(block));
    if (got <= 0) {
      return "";
    }
    unread_.append(block, static_cast<std::size_t>(got));
  }
  std::string line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return line;
}

}  // namespace keldane::testing
