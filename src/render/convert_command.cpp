#include "render/convert_command.h"

#include <array>

#include "platform/file.h"
#include "platform/file_types.h"
#include "platform/text.h"
#include "thumbs/tool_selection.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr std::size_t kEscapeBufferSize = 8192;

// "1280x1280"
std::string BoxText(const ThumbRequest& request) {
  return std::to_string(request.width) + "x" + std::to_string(request.height);
}

// The photo, or only its first page or frame where the file can hold several.
std::string InputArgument(const std::string& path) {
  return CutToPathBuffer(keldoindexutils::DoesMultiplePagePhotoFile(path) ? path + "[0]" : path);
}

void AddThumbnailGroups(KELDOUtils::ProcessRunner& runner, const ThumbRequestList& list) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i + 1 == list.size()) {
      AddLastThumbnail(runner, list[i]);
    } else if (i == 0) {
      AddFirstThumbnail(runner, list[i]);
    } else {
      AddMiddleThumbnail(runner, list[i]);
    }
  }
}

}  // namespace

bool RunConvert(const ThumbRequestList& list, const std::string& input_path,
                const std::string& icc_path) {
  const std::string converter = ConverterPath();
  KELDOUtils::ProcessRunner runner(converter.c_str(), converter.c_str());
  AddTemporaryPathDefine(list, runner);
  if (IsLowMemory()) runner.addArguments("-limit", "thread", "1");
  runner.addArguments(InputArgument(input_path).c_str());
  if (!icc_path.empty() && keldoindexutils::stat::DoesFileExistAndHasSize(icc_path)) {
    runner.addArguments("-profile", icc_path.c_str());
  }
  AddThumbnailGroups(runner, list);
  return runner.run(true, false) == 0;
}

bool RunConvertPlain(const ThumbRequestList& list, const std::string& input_path) {
  return RunConvert(list, input_path, "");
}

void AddTemporaryPathDefine(const ThumbRequestList& list, KELDOUtils::ProcessRunner& runner) {
  if (list.empty() || list.front().tempDir.empty()) return;
  // The converter expands percent signs in this value, and a folder may well be called "100%".
  std::array<char, kEscapeBufferSize> escaped{};
  EscapePercentSign(list.front().tempDir.c_str(), escaped.data(), escaped.size());
  const std::string define =
      CutToPathBuffer(std::string("registry:temporary-path=") + escaped.data());
  runner.addArguments("-define", define.c_str());
}

void AddThumbnailOptions(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request) {
  const std::string box = BoxText(request);
  runner.addArguments("-define", ("jpeg:size=" + box).c_str());
  runner.addArguments("-thumbnail", (box + (request.fill ? ">^" : ">")).c_str());
  runner.addArguments("-quality", std::to_string(request.quality).c_str());
  if (request.stripProfiles) runner.addArguments("+profile", "!icc,*");
  if (request.flatten) runner.addArguments("-flatten");
  if (request.autoOrient) runner.addArguments("-auto-orient");
  if (request.rotate > 0) runner.addArguments("-rotate", std::to_string(request.rotate).c_str());
  if (request.flop) runner.addArguments("-flop");
  if (!request.unsharp.empty()) runner.addArguments("-unsharp", request.unsharp.c_str());
  if (!request.colorspace.empty()) runner.addArguments("-colorspace", request.colorspace.c_str());
}

void AddFirstThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request) {
  runner.addArguments("(", "-clone", "0");
  AddThumbnailOptions(runner, request);
  runner.addArguments("-write", request.tempPath.c_str(), ")", "-delete", "0");
}

void AddMiddleThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request) {
  runner.addArguments("(", "+clone");
  AddThumbnailOptions(runner, request);
  runner.addArguments("-write", request.tempPath.c_str(), "+delete", ")");
}

void AddLastThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request) {
  AddThumbnailOptions(runner, request);
  runner.addArguments(request.tempPath.c_str());
}

void ApplyPhotoRotation(ThumbRequestList& list, const keldoindexutils::MediaInfo& media) {
  ThumbRequest& first = list.at(0);
  // EXIF orientation as a clockwise rotation followed by a left-right mirror.
  switch (media.photo_rotation()) {
    case 2:
      first.flop = true;
      break;
    case 3:
      first.rotate = 180;
      break;
    case 4:
      first.flop = true;
      first.rotate = 180;
      break;
    case 5:
      first.flop = true;
      first.rotate = 90;
      break;
    case 6:
      first.rotate = 90;
      break;
    case 7:
      first.flop = true;
      first.rotate = 270;
      break;
    case 8:
      first.rotate = 270;
      break;
    default:
      break;
  }
}

}  // namespace keldo
