// A host in a few lines: shows what the plug-in offers for the files on the command line.
//   g++ host.cpp $(pkg-config --cflags --libs keldane-host) -o host && ./host ~/letter.txt
#include <filesystem>
#include <iostream>

#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"

namespace {

void print(const std::vector<keldane::MenuItem>& items, const std::string& indent) {
  for (const keldane::MenuItem& item : items) {
    std::cout << indent << item.title << '\n';
    print(item.items, indent + "  ");
  }
}

}  // namespace

int main(int argc, char** argv) {
  keldane::Selection selection;
  for (int i = 1; i < argc; ++i) {
    selection.paths.push_back(std::filesystem::absolute(argv[i]).lexically_normal());
  }
  // The plug-in shows its menu to a file manager alone.
  keldane::Host& process = keldane::Host::shared();
  process.declareMainThread();
  process.setProcess(keldane::fourCharCode("MACS"), keldane::fourCharCode("FNDR"));
  keldane::MenuHost host;
  std::string error;
  if (!host.load("", &error)) {  // the bundle that is installed
    std::cerr << error << '\n';
    return 1;
  }
  print(host.examine(selection).menu, "");
  host.cleanup();
  return 0;
}
