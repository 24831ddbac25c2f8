// The daemon as a program.
#pragma once

namespace keldo::plugind {

/// Runs keldoindexplugind with this command line. Returns the exit status: 0 after a stop signal, 1
/// when it cannot serve, 2 for a wrong command line.
[[nodiscard]] int RunPluginDaemon(int argc, char** argv);

}  // namespace keldo::plugind
