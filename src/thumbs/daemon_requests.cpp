#include "thumbs/daemon_requests.h"

#include <json/value.h>
#include <syslog.h>

#include "platform/index_ipc.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr int kNoFlags = -1;
constexpr int kTimeoutSeconds = 1800;

Json::Value Request(const char* command) {
  Json::Value request(Json::objectValue);
  request["command"] = command;
  return request;
}

Json::Value Request(const char* command, const std::string& path) {
  Json::Value request = Request(command);
  request["path"] = path;
  return request;
}

// A member of a reply that can be read as the wanted type. The reply is a stranger's: reading a
// text as a number would throw.
bool IsReadable(const Json::Value& reply, const char* member, Json::ValueType type) {
  return reply.isObject() && reply[member].isConvertibleTo(type);
}

// Sends the request and leaves the reply in its place. True when the daemon reports success;
// otherwise the failure is logged under `failure_line`.
bool Exchange(Json::Value& packet, int failure_line) {
  keldoindexutils::ipc::AutoSendRecvPacket(paths::kPluginDaemonSocket, kNoFlags, packet,
                                           kTimeoutSeconds);
  if (IsReadable(packet, "success", Json::booleanValue) && packet["success"].asBool()) return true;
  syslog(LOG_ERR, "%s:%d fail", "keldomk_ipc", failure_line);
  return false;
}

bool AskSwitch(const char* command, int failure_line) {
  Json::Value packet = Request(command);
  if (!Exchange(packet, failure_line)) return false;
  return IsReadable(packet, "result", Json::booleanValue) && packet["result"].asBool();
}

}  // namespace

int GetIndexVersion(const std::string& path) {
  Json::Value packet = Request("GET_INDEX_VERSION", path);
  if (!Exchange(packet, 59)) return -1;
  return IsReadable(packet, "version", Json::intValue) ? packet["version"].asInt() : -1;
}

void PostPhotoConvert(const std::string& path) {
  Json::Value packet = Request("POST_PHOTO_CONVERT", path);
  static_cast<void>(Exchange(packet, 139));
}

void PostVideoConvert(const std::string& path) {
  Json::Value packet = Request("POST_VIDEO_CONVERT", path);
  static_cast<void>(Exchange(packet, 159));
}

bool IsPhotoConversionOn() {
  return AskSwitch("IS_CONVERT_PHOTO", 112);
}

bool IsVideoConversionOn() {
  return AskSwitch("IS_CONVERT_VIDEO", 85);
}

int GetMediaFromPluginDb(int type, const std::string& path, keldoindexutils::MediaInfo& media) {
  Json::Value packet = Request("GET_MEDIA_FROM_PLUGIN_DB", path);
  packet["type"] = type;
  if (!Exchange(packet, 32)) return -1;
  media.SetByJson(packet["media"]);
  return 0;
}

}  // namespace keldo
