#include "thumbs/daemon_requests.h"

#include <syslog.h>

#include "platform/index_ipc.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr int kNoFlags = -1;
constexpr int kTimeoutSeconds = 1800;
constexpr const char* kSource = "keldomk_ipc";

}  // namespace

Json::Value DaemonRequest(const char* command) {
  Json::Value request(Json::objectValue);
  request["command"] = command;
  return request;
}

Json::Value DaemonRequest(const char* command, const std::string& path) {
  Json::Value request = DaemonRequest(command);
  request["path"] = path;
  return request;
}

bool IsReadable(const Json::Value& reply, const char* member, Json::ValueType type) {
  return reply.isObject() && reply[member].isConvertibleTo(type);
}

bool AskDaemon(Json::Value& packet, int failure_line) {
  keldoindexutils::ipc::AutoSendRecvPacket(paths::kPluginDaemonSocket, kNoFlags, packet,
                                           kTimeoutSeconds);
  if (IsReadable(packet, "success", Json::booleanValue) && packet["success"].asBool()) return true;
  syslog(LOG_ERR, "%s:%d fail", kSource, failure_line);
  return false;
}

int GetIndexVersion(const std::string& path) {
  Json::Value packet = DaemonRequest("GET_INDEX_VERSION", path);
  if (!AskDaemon(packet, 59)) return -1;
  return IsReadable(packet, "version", Json::intValue) ? packet["version"].asInt() : -1;
}

void PostPhotoConvert(const std::string& path) {
  Json::Value packet = DaemonRequest("POST_PHOTO_CONVERT", path);
  static_cast<void>(AskDaemon(packet, 139));
}

}  // namespace keldo
