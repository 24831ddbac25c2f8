// The services of the fake platform: the media index and the plug-in daemon, child processes
// (recorded, never started), termination, isolation and the application's log.
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <string>

#include "fakes/fake_platform.h"
#include "platform/index_ipc.h"
#include "platform/process.h"
#include "platform/system.h"
#include "process/isolated.h"
#include "process/startup.h"
#include "util/termination.h"

using keldo::testing::fake;
using keldo::testing::PopenCall;

namespace {

using MaskTable = std::map<std::pair<std::string, int>, int>;

int FindMask(const MaskTable& masks, const char* path, int type) {
  const auto found = masks.find({path, type});
  return found == masks.end() ? fake().default_mask : found->second;
}

}  // namespace

namespace keldoindexutils {

void MediaInfo::SetByJson(const Json::Value& media) {
  if (!media.isObject()) return;
  if (media["path"].isString()) path_ = media["path"].asString();
  if (media["resolution_x"].isInt()) resolution_x_ = media["resolution_x"].asInt();
  if (media["resolution_y"].isInt()) resolution_y_ = media["resolution_y"].asInt();
  if (media["photo_rotation"].isInt()) photo_rotation_ = media["photo_rotation"].asInt();
  if (media["frame_bitrate"].isInt()) frame_bitrate_ = media["frame_bitrate"].asInt();
}

bool KELDOIndexImgResGet(const std::string& path, unsigned& width, unsigned& height) {
  if (fake().Enter("KELDOIndexImgResGet", path)) return false;
  const auto found = fake().image_sizes.find(path);
  if (found == fake().image_sizes.end()) return false;
  width = found->second.first;
  height = found->second.second;
  return true;
}

namespace ipc {

int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask) {
  if (fake().Enter("KELDOIDX_GetDirThumbSizeMap", directory, static_cast<int>(type))) return -1;
  *mask = FindMask(fake().dir_masks, directory, type);
  return 0;
}

int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask) {
  if (fake().Enter("KELDOIDX_GetThumbSizeMap", path, static_cast<int>(type))) return -1;
  *mask = FindMask(fake().file_masks, path, type);
  return 0;
}

int KELDOIDX_IsVideoNeedConvert(const char* path) {
  if (fake().Enter("KELDOIDX_IsVideoNeedConvert", path)) return 0;
  const auto found = fake().video_need_convert.find(path);
  return found == fake().video_need_convert.end() ? 0 : found->second;
}

int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info) {
  if (fake().Enter("KELDOIDX_GetMediaInfo", path)) return -1;
  const auto found = fake().media_info.find(path);
  if (found == fake().media_info.end()) return -1;
  info = found->second;
  return 0;
}

int KELDOIDX_IndexConvertAdd(const MediaInfo& source, const MediaInfo& converted,
                             const Json::Value& extra) {
  fake().convert_reports.push_back({source, converted, extra});
  return fake().Enter("KELDOIDX_IndexConvertAdd", source.path(), converted.path()) ? -1 : 0;
}

int AutoSendRecvPacket(const char* socket_path, int flags, Json::Value& value,
                       int timeout_seconds) {
  fake().packets.push_back({socket_path, flags, value, timeout_seconds});
  const std::string command =
      value.isObject() && value["command"].isString() ? value["command"].asString() : "?";
  std::optional<Json::Value> reply;
  if (!fake().Enter("AutoSendRecvPacket", command) && fake().on_packet) {
    reply = fake().on_packet(fake().packets.back().value);
  }
  value = reply.value_or(Json::Value(Json::objectValue));
  return reply ? 0 : -1;
}

}  // namespace ipc
}  // namespace keldoindexutils

namespace KELDOUtils {

struct ProcessRunner::Impl {
  /// The program, then its argument vector.
  std::vector<std::string> command;
};

ProcessRunner::ProcessRunner(const char* program, const char* argv0, const char* a1, const char* a2,
                             const char* a3)
    : impl_(std::make_unique<Impl>(Impl{{program, argv0}})) {
  addArguments(a1, a2, a3);
}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* a1, const char* a2, const char* a3, const char* a4,
                                 const char* a5, const char* a6, const char* a7, const char* a8,
                                 const char* a9) {
  for (const char* argument : std::array{a1, a2, a3, a4, a5, a6, a7, a8, a9}) {
    if (argument == nullptr) return;
    impl_->command.emplace_back(argument);
  }
}

int ProcessRunner::run(bool wait, bool detach_output) {
  const std::vector<std::string>& command = impl_->command;
  fake().runs.push_back(command);
  if (fake().Enter("ProcessRunner::run", command.front(), wait, detach_output)) return -1;
  return fake().on_run ? fake().on_run(command) : 0;
}

}  // namespace KELDOUtils

FILE* KLIBCPopen(const char* path, const char* mode, ...) {
  PopenCall call{mode, {path}};
  va_list arguments;
  va_start(arguments, mode);
  while (const char* argument = va_arg(arguments, const char*))
    call.argv.emplace_back(argument);
  va_end(arguments);

  fake().popens.push_back(call);
  if (fake().Enter("KLIBCPopen", path, mode)) return nullptr;
  const std::optional<std::string> output =
      fake().on_popen ? fake().on_popen(call) : std::optional<std::string>("");
  return output ? fake().OpenStream(*output) : nullptr;
}

int KLIBCPclose(FILE* stream) {
  fake().Enter("KLIBCPclose");
  return fake().CloseStream(stream) ? fake().popen_status : -1;
}

int KLIBCKill(const char* name, int signal) {
  return fake().Enter("KLIBCKill", name, signal) ? 0 : fake().killed_processes;
}

int KLIBCProcPidFileCreate(const char* path) {
  if (fake().Enter("KLIBCProcPidFileCreate", path)) return -1;
  fake().WriteLines(path, {std::to_string(getpid())});
  return 0;
}

namespace keldo::process {

void EnsureStandardDescriptors() {
  fake().Enter("EnsureStandardDescriptors");
}

IsolatedResult RunIsolated(const std::function<int(std::string& output)>& work) {
  IsolatedResult result;
  if (fake().Enter("RunIsolated")) return result;
  result.status = work(result.output) & 0xff;
  result.finished = true;
  return result;
}

}  // namespace keldo::process

namespace keldo {

void HoldTermination() {
  fake().Enter("HoldTermination");
}

void LetTerminationIn() {
  fake().Enter("LetTerminationIn");
  if (fake().on_let_termination_in) fake().on_let_termination_in();
}

int WaitForEvents(std::span<pollfd> events, int timeout_ms) {
  if (fake().Enter("WaitForEvents", events.size(), timeout_ms)) return -1;
  if (fake().on_wait) fake().on_wait();
  return poll(events.data(), events.size(), timeout_ms);
}

}  // namespace keldo

void AppLogError(int level, const char* format, ...) {
  fake().Enter("AppLogError", level);
  va_list arguments;
  va_start(arguments, format);
  vsyslog(LOG_ERR, format, arguments);
  va_end(arguments);
}
