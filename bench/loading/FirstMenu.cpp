// The work of a file manager's extension until its first menu: the host's library, the plug-in, one cycle.
#include "hosts/core/MenuHost.h"
#include "platform/host/Host.h"

/// The arguments are a bundle and a file.
extern "C" int benchRun(int argumentCount, char** arguments) {
  using namespace keldane;
  if (argumentCount != 2) {
    return 2;
  }
  Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
  static MenuHost host;
  std::string error;
  if (!host.load(arguments[0], &error)) {
    return 1;
  }
  Selection selection;
  selection.paths.emplace_back(arguments[1]);
  return host.examine(selection).menu.empty() ? 1 : 0;
}
