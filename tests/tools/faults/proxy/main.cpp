// fault-proxy: a proxy between a client and the daemon. Each line of its input is the plan of one connection.
// It answers "ready" at the start, and one line about each connection when that has ended.
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "tests/tools/faults/proxy/FaultProxy.h"

int main(int argc, char** argv) {
  using namespace keldane::testing;
  std::string listenPath;
  std::string connectPath;
  CLI::App app("Passes on what a client and the daemon say, with faults.", "fault-proxy");
  app.add_option("--listen", listenPath, "Where the client connects")->type_name("PATH")->required();
  app.add_option("--connect", connectPath, "Where the daemon listens")->type_name("PATH")->required();
  CLI11_PARSE(app, argc, argv);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    FaultProxy proxy(listenPath, connectPath, Farewell::daemon);
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
      const std::optional<FaultPlan> plan = FaultPlan::parse(line);
      if (!plan) {
        std::cerr << "fault-proxy: \"" << line << "\" is no plan.\n";
        return 2;
      }
      std::cout << proxy.serve(*plan).line() << std::endl;
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "fault-proxy: " << error.what() << '\n';
    return 1;
  }
}
