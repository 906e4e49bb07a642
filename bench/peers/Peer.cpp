// The other process of a measured call.
//   bench-peer ROLE SOCKET    runs until its only client has gone; as a daemon, until its standard input ends
#include <unistd.h>

#include <iostream>
#include <map>

#include "bench/peers/Buses.h"
#include "bench/peers/Floor.h"
#include "tests/support/Samples.h"
#include "tests/support/daemon/CannedDaemon.h"

namespace keldane::bench {
using namespace keldane::testing;
namespace {

void serveDaemon(const std::string& path) {
  const std::shared_ptr<CannedDaemon> daemon = CannedDaemon::listen(path, nodeDictionary(0));
  char byte = 0;
  while (daemon && ::read(STDIN_FILENO, &byte, 1) > 0) {
  }
}

std::string lineOf(const PropertyList& node) {
  std::string line = "STATUS";
  for (std::size_t i = 0; i < node.count(); ++i) {
    const PropertyList::Entry entry = node.entry(i);
    line += "\t" + std::string(entry.first.string()) + "=" + entry.second.description();
  }
  return line + "\n";
}

int run(const std::string& role, const std::string& path) {
  const PropertyList node = nodeDictionary(0);
  const Bytes bytes = bytesOf(node, PropertyListSerialization::Format::binary);
  if (role == "daemon") {
    serveDaemon(path);
  } else if (role == "floor") {
    serveFloor(path, Pieces::four, bytes);
  } else if (role == "floor-ahead") {
    serveFloor(path, Pieces::ahead, bytes);
  } else if (role == "slow-floor") {
    serveFloor(path, Pieces::four, bytes, std::chrono::milliseconds(1));
  } else if (role == "floor-in-one") {
    serveFloor(path, Pieces::one, bytes);
  } else if (role == "sd-bus") {
    serveSdBus(path, node);
  } else if (role == "gdbus") {
    serveGDBus(path, node);
  } else if (role == "lines") {
    serveLines(path, lineOf(node));
  } else {
    std::cerr << "bench-peer: no role " << role << '\n';
    return 1;
  }
  return 0;
}

}  // namespace
}  // namespace keldane::bench

int main(int argc, char** argv) {
  try {
    return argc == 3 ? keldane::bench::run(argv[1], argv[2]) : 1;
  } catch (const std::exception& error) {
    std::cerr << "bench-peer: " << error.what() << '\n';
    return 1;
  }
}
