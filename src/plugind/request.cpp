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

// A client's text, made safe for one line of the log.
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
  const auto media = store.FindMedia(path, IntMember(request, "type"));
  if (!media) return Outcome(false);
  Json::Value record(Json::objectValue);
  record["path"] = media->path;
  record["resolution_x"] = media->width;
  record["resolution_y"] = media->height;
  record["photo_rotation"] = media->orientation;
  record["frame_bitrate"] = media->bit_rate;
  Json::Value reply = Outcome(true);
  reply["media"] = record;
  return reply;
}

struct Command {
  std::string_view name;
  Json::Value (*answer)(const Json::Value& request, IndexStore& store);
};

// Finished photos and videos share one list: no file is both.
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

void RequestBuffer::Append(std::string_view bytes) {
  bytes_.erase(0, begin_);
  searched_ -= begin_;
  begin_ = 0;
  bytes_.append(bytes);
}

std::optional<RequestLine> RequestBuffer::Next() {
  while (true) {
    const std::size_t newline = bytes_.find('\n', searched_);
    if (newline == std::string::npos) return NextUnfinished();
    const std::size_t begin = begin_;
    begin_ = searched_ = newline + 1;
    const bool reported = dropping_;
    dropping_ = false;
    if (reported) continue;
    if (newline - begin > kMaxRequest) return RequestLine{.text = {}, .too_long = true};
    return RequestLine{.text = bytes_.substr(begin, newline - begin), .too_long = false};
  }
}

std::optional<RequestLine> RequestBuffer::NextUnfinished() {
  searched_ = bytes_.size();
  if (!dropping_ && bytes_.size() - begin_ <= kMaxRequest) return std::nullopt;
  begin_ = bytes_.size();
  if (dropping_) return std::nullopt;
  dropping_ = true;
  return RequestLine{.text = {}, .too_long = true};
}

std::optional<RequestLine> RequestBuffer::Rest() {
  if (std::optional<RequestLine> line = Next()) return line;
  if (begin_ == bytes_.size()) return std::nullopt;
  RequestLine line{.text = bytes_.substr(begin_), .too_long = false};
  begin_ = searched_ = bytes_.size();
  return line;
}

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
