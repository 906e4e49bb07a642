// The daemon with an engine that stores nothing, for tests that are not about storage. Never installed.
#include "daemon/Program.h"
#include "tests/support/daemon/RecordingEngine.h"

int main(int argc, char** argv) {
  return keldane::runDaemon(argc, argv, [](const keldane::RepositoryFiles& files) {
    return std::make_unique<keldane::testing::RecordingEngine>(files);
  });
}
