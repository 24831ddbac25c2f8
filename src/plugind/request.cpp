#include "plugind/request.h"

#include <json/value.h>

#include <array>
#include <exception>
#include <stdexcept>
#include <utility>

#include "util/json_line.h"
#include "util/path.h"

namespace keldo::plugind {
namespace {

constexpr std::size_t kMaxQuotedText = 40;

// Why a request is refused. Thrown and caught within this file.
class RequestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a client sent, fit for one line of the log.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text.substr(0, kMaxQuotedText)) {
    quoted += c >= ' ' && c <= '~' ? c : '?';
  }
  return quoted + (text.size() > kMaxQuotedText ? "...\"" : "\"");
}

Json::Value Parsed(std::string_view text) {
  Json::Value value;
  if (!ParseJsonObject(text, value)) throw RequestError("it is no JSON object");
  return value;
}

std::string TextMember(const Json::Value& request, const char* name) {
  const Json::Value& member = request[name];
  if (!member.isString()) throw RequestError(std::string("it has no text \"") + name + "\"");
  return member.asString();
}

// The index knows files by absolute paths, and the client's working directory is not ours.
std::string PathMember(const Json::Value& request) {
  std::string path = TextMember(request, "path");
  if (!path.starts_with('/')) throw RequestError("the path " + Quoted(path) + " is not absolute");
  if (path.size() > kMaxPathText) throw RequestError("the path is too long");
  if (path.find('\0') != std::string::npos) throw RequestError("the path holds a zero byte");
  return path;
}

int IntMember(const Json::Value& request, const char* name) {
  const Json::Value& member = request[name];
  if (!member.isInt()) throw RequestError(std::string("it has no integer \"") + name + "\"");
  return member.asInt();
}

Json::Value Outcome(bool success) {
  Json::Value reply(Json::objectValue);
  reply["success"] = success;
  return reply;
}

Json::Value GetIndexVersion(const Json::Value& request, IndexStore& store) {
  const std::string path = PathMember(request);
  Json::Value reply = Outcome(true);
  reply["version"] = store.Version(path);
  return reply;
}

Json::Value PostConvert(const Json::Value& request, IndexStore& store) {
  return Outcome(store.AddFinished(PathMember(request)));
}

Json::Value IsConvert(_tag_THUMB_TYPE_ type, IndexStore& store) {
  Json::Value reply = Outcome(true);
  reply["result"] = store.IsConversionOn(type);
  return reply;
}

Json::Value IsConvertPhoto(const Json::Value& /*request*/, IndexStore& store) {
  return IsConvert(THUMB_TYPE_PHOTO, store);
}

Json::Value IsConvertVideo(const Json::Value& /*request*/, IndexStore& store) {
  return IsConvert(THUMB_TYPE_VIDEO, store);
}

Json::Value GetMedia(const Json::Value& request, IndexStore& store) {
  const std::string path = PathMember(request);
  const auto info = store.FindMedia(path, IntMember(request, "type"));
  if (!info) return Outcome(false);
  Json::Value media(Json::objectValue);
  media["path"] = info->path();
  media["resolution_x"] = info->resolution_x();
  media["resolution_y"] = info->resolution_y();
  media["photo_rotation"] = info->photo_rotation();
  media["frame_bitrate"] = info->frame_bitrate();
  Json::Value reply = Outcome(true);
  reply["media"] = media;
  return reply;
}

struct Command {
  std::string_view name;
  Json::Value (*answer)(const Json::Value& request, IndexStore& store);
};

// Finished photos and videos are one list: no file is both.
constexpr std::array<Command, 6> kCommands{{
    {"GET_INDEX_VERSION", GetIndexVersion},
    {"POST_PHOTO_CONVERT", PostConvert},
    {"POST_VIDEO_CONVERT", PostConvert},
    {"IS_CONVERT_PHOTO", IsConvertPhoto},
    {"IS_CONVERT_VIDEO", IsConvertVideo},
    {"GET_MEDIA_FROM_PLUGIN_DB", GetMedia},
}};

Json::Value Reply(std::string_view text, IndexStore& store) {
  const Json::Value request = Parsed(text);
  const std::string name = TextMember(request, "command");
  for (const Command& command : kCommands) {
    if (command.name == name) return command.answer(request, store);
  }
  throw RequestError("the command " + Quoted(name) + " is unknown");
}

}  // namespace

Answer AnswerRequest(std::string_view text, IndexStore& store) {
  try {
    return {.reply = JsonLine(Reply(text, store)), .problem = {}};
  } catch (const std::exception& error) {
    return Refusal(error.what());
  }
}

Answer Refusal(std::string problem) {
  return {.reply = JsonLine(Outcome(false)), .problem = std::move(problem)};
}

}  // namespace keldo::plugind
