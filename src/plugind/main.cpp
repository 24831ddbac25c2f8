#include "plugind/daemon.h"

int main(int argc, char** argv) {
  return keldo::plugind::RunPluginDaemon(argc, argv);
}
