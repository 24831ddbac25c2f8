#include "plugind/daemon.h"

#include <syslog.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <chrono>
#include <exception>
#include <iostream>
#include <string>

#include "plugind/index_store.h"
#include "plugind/listen_socket.h"
#include "plugind/request.h"
#include "plugind/server.h"
#include "process/startup.h"
#include "thumbs/paths.h"

namespace keldo::plugind {
namespace {

constexpr const char* kName = "keldoindexplugind";
constexpr const char* kExamples =
    "Requests come to the socket, one JSON object a line:\n"
    "  {\"command\":\"GET_INDEX_VERSION\",\"path\":\"/photos/a.jpg\"}\n"
    "\n"
    "Example, beside a daemon that is running already:\n"
    "  keldoindexplugind --verbose --socket /run/user/1000/index_sock --database ~/index.db";

struct Options {
  std::string socket = paths::kPluginDaemonSocket;
  std::string database = index::kDatabasePath;
  unsigned idle_seconds = 30;
  unsigned max_clients = 64;
  bool clean_up = false;
  bool verbose = false;
};

void Describe(CLI::App& app, Options& options) {
  constexpr unsigned kMaxIdleSeconds = 3600;
  constexpr unsigned kMostClients = 512;
  app.add_option("--socket", options.socket, "Listen on this local socket")
      ->type_name("PATH")
      ->take_last()
      ->capture_default_str();
  app.add_option("--database", options.database, "Serve from this index; it is made if missing")
      ->type_name("FILE")
      ->take_last()
      ->capture_default_str();
  app.add_option("--idle-timeout", options.idle_seconds,
                 "Drop a client that makes no progress for so long")
      ->type_name("SECONDS")
      ->check(CLI::Range(1U, kMaxIdleSeconds))
      ->take_last()
      ->capture_default_str();
  app.add_option("--max-clients", options.max_clients, "Turn away further clients")
      ->type_name("NUMBER")
      ->check(CLI::Range(1U, kMostClients))
      ->take_last()
      ->capture_default_str();
  app.add_flag("--clean-up", options.clean_up,
               "Only remove the socket, if a daemon has left it behind");
  app.add_flag("--verbose", options.verbose, "Log to standard error too");
  app.set_version_flag("--version", std::string(kName) + " " + KELDO_VERSION);
  app.footer(kExamples);
}

int Fail(const std::string& problem, const Options& options) {
  syslog(LOG_ERR, "%s", problem.c_str());
  // With --verbose the log goes there too.
  if (!options.verbose) std::cerr << kName << ": " << problem << '\n';
  return 1;
}

int Serve(const Options& options) {
  // Before the socket, whose file a stop must remove.
  const process::StopSignals signals;
  DatabaseStore store(options.database);
  ListenSocket::OpenResult opened = ListenSocket::Open(options.socket);
  if (!opened.socket) return Fail(opened.problem, options);
  const auto answer = [&](std::string_view text) { return AnswerRequest(text, store); };
  ServerLimits limits;
  limits.idle_time = std::chrono::seconds(options.idle_seconds);
  limits.max_clients = options.max_clients;
  syslog(LOG_INFO, "listening on %s", options.socket.c_str());
  Server(*opened.socket, answer, limits).Run(signals.fd());
  syslog(LOG_INFO, "stopped");
  return 0;
}

int CleanUp(const Options& options) {
  const std::string problem = RemoveStaleSocket(options.socket);
  return problem.empty() ? 0 : Fail(problem, options);
}

}  // namespace

int RunPluginDaemon(int argc, char** argv) {
  Options options;
  CLI::App app("Answers the requests of keldothumb from the media index", kName);
  Describe(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    constexpr int kUsageError = 2;
    return app.exit(error) == 0 ? 0 : kUsageError;
  }
  ::openlog(kName, LOG_PID | (options.verbose ? LOG_PERROR : 0), LOG_DAEMON);
  try {
    return options.clean_up ? CleanUp(options) : Serve(options);
  } catch (const std::exception& error) {
    return Fail(error.what(), options);
  }
}

}  // namespace keldo::plugind
