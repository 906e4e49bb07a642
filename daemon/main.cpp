// keldaned: the backup daemon.
#include "daemon/Program.h"
#include "daemon/engine/restic/ResticEngine.h"

int main(int argc, char** argv) {
  return keldane::runDaemon(argc, argv, [](const keldane::RepositoryFiles& files) {
    return std::make_unique<keldane::ResticEngine>(files);
  });
}
