// Requests to the indexer's plug-in daemon: one JSON object each way over its local socket.
//
// A request that fails (no daemon, time-out, refusal, invalid reply) logs one line "fail" and
// returns the result named below. Callers go on without the answer.
#pragma once

#include <json/value.h>

#include <string>

namespace keldo {

/// The index version of a file; -1 on failure.
[[nodiscard]] int GetIndexVersion(const std::string& path);

/// Tells the daemon that a photo's thumbnails are done, or given up.
void PostPhotoConvert(const std::string& path);

// ---- What every request is made of ----

/// A request that consists of a command, and one about a file.
[[nodiscard]] Json::Value DaemonRequest(const char* command);
[[nodiscard]] Json::Value DaemonRequest(const char* command, const std::string& path);

/// Sends a request and leaves the reply in its place. True when the daemon reports success;
/// otherwise "fail" is logged with `failure_line`.
[[nodiscard]] bool AskDaemon(Json::Value& packet, int failure_line);

/// True when a member of a reply can be read as the wanted type. The reply is not to be trusted:
/// reading a text as a number would throw.
[[nodiscard]] bool IsReadable(const Json::Value& reply, const char* member, Json::ValueType type);

}  // namespace keldo
