// Stands in for the plug-in daemon: sends the replies that a test chooses and records the requests.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "util/handles.h"

namespace keldo::testing {

/// Listens on a stream socket. Every line is a request, and every reply is a line.
class ScriptedDaemon {
 public:
  /// Returns the reply to a request. An empty reply closes the connection instead.
  using Answer = std::function<std::string(const std::string& request)>;

  ScriptedDaemon(const std::string& path, Answer answer);
  ~ScriptedDaemon();
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

  /// The requests since the last call, as received, without the newline.
  [[nodiscard]] std::vector<std::string> TakeRequests();

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

/// Replies to everything with success and this index version.
[[nodiscard]] ScriptedDaemon::Answer AnswerVersion(int version);

/// The requests as the program sends them.
[[nodiscard]] std::string VersionRequest(const std::string& path);
[[nodiscard]] std::string PostRequest(const std::string& path);

}  // namespace keldo::testing
