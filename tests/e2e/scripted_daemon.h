// Plays the plug-in daemon: answers as a test tells it to and remembers what it was asked.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "util/handles.h"

namespace keldo::testing {

/// Listens on a stream socket; every line is a request, and the answer is sent as a line.
class ScriptedDaemon {
 public:
  /// Gets the request's text, returns the answer's. An empty answer closes the connection instead.
  using Answer = std::function<std::string(const std::string& request)>;

  ScriptedDaemon(const std::string& path, Answer answer);
  ~ScriptedDaemon();
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

  /// The requests since the last call, as sent, without the newline.
  [[nodiscard]] std::vector<std::string> Take();

 private:
  void Serve();
  void ServeConnection(int connection);
  [[nodiscard]] bool WaitReadable(int fd) const;

  Answer answer_;
  UniqueFd socket_;
  UniqueFd stop_;
  std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

/// Says yes to everything and gives this index version.
[[nodiscard]] ScriptedDaemon::Answer AnswerVersion(int version);

/// The request texts as the program sends them.
[[nodiscard]] std::string VersionRequest(const std::string& path);
[[nodiscard]] std::string PostRequest(const std::string& path);

}  // namespace keldo::testing
