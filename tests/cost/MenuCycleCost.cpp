// Menu cycles for those that count something else than time: instructions, system calls, memory.
//   menu-cycle-cost FILES [CYCLES]    through the plug-in's function table, on files that are there; the
//   daemon is
//                                     another process, which answers at once
//   menu-cycle-cost --daemon SOCKET   that process
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/Samples.h"
#include "tests/support/daemon/CannedDaemon.h"
#include "tests/support/process/PeerProcess.h"

namespace keldane::testing {
namespace {

int serve(const std::string& socket) {
  const std::shared_ptr<CannedDaemon> daemon = CannedDaemon::listen(socket, nodeDictionary(0));
  char byte = 0;
  while (daemon && ::read(STDIN_FILENO, &byte, 1) > 0) {
  }
  return daemon ? 0 : 1;
}

int run(const std::string& program, std::size_t files, std::size_t cycles) {
  const PluginBundle bundle;
  const PeerProcess daemon({program, "--daemon", bundle.daemonPath()}, bundle.daemonPath());
  Selection selection;
  for (std::size_t i = 0; i < files; ++i) {
    selection.paths.push_back(
        bundle.folder().write("Quarterly report " + std::to_string(i) + ".odt", "text"));
  }
  Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
  MenuHost host;
  std::string error;
  if (!host.load(bundle.path(), &error)) {
    std::cerr << error << '\n';
    return 1;
  }
  for (std::size_t i = 0; i < cycles; ++i) {
    const MenuHost::Examination examination = host.examine(selection);
    host.cleanup();
    if (examination.menu.empty() || examination.menu.front().items.size() < 5) {
      std::cerr << "The menu is not what it should be.\n";
      return 1;
    }
  }
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) {
      std::cout << line << '\n';
    }
  }
  return 0;
}

}  // namespace
}  // namespace keldane::testing

int main(int argc, char** argv) {
  if (argc == 3 && argv[1] == std::string("--daemon")) {
    return keldane::testing::serve(argv[2]);
  }
  if (argc != 2 && argc != 3) {
    std::cerr << "usage: menu-cycle-cost FILES [CYCLES]\n";
    return 1;
  }
  return keldane::testing::run(std::filesystem::read_symlink("/proc/self/exe").string(), std::stoul(argv[1]),
                               argc == 3 ? std::stoul(argv[2]) : 1);
}
