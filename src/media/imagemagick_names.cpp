#include "media/imagemagick_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "media/formats.h"

namespace keldo::media {
namespace {

constexpr std::string_view kEscapedOption = "registry:temporary-path=";
constexpr std::string_view kFirstFrame = "[0]";
constexpr const char* kSpecialCharacters = "%*?[]{}";

struct FreeText {
  void operator()(char* text) const { std::free(text); }  // NOLINT(cppcoreguidelines-no-malloc)
};

std::string LastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

bool HasSpecialCharacter(const std::string& text) {
  return text.find_first_of(kSpecialCharacters) != std::string::npos;
}

std::string WithoutFirstFrame(const std::string& argument) {
  return argument.substr(0, argument.size() - kFirstFrame.size());
}

// True when the frame number at the end is ours and not part of the name. Beside "b.gif" there may
// be a file "b.gif[0]", which is not a photo, but which the program would prefer.
bool HasFirstFrameSuffix(const std::string& argument) {
  if (!argument.ends_with(kFirstFrame)) return false;
  const std::string path = WithoutFirstFrame(argument);
  return Exists(path) && (!Exists(argument) || CanHoldSeveralPages(path));
}

bool IsRelativeAndMisread(const std::string& path) {
  return path.front() != '/' &&
         (path.find(':') != std::string::npos ||
          std::string_view("-@~+").find(path.front()) != std::string_view::npos);
}

}  // namespace

bool IsImageMagick(const std::string& program) {
  const std::unique_ptr<char, FreeText> resolved(realpath(program.c_str(), nullptr));
  if (!resolved) return false;
  const std::string name = LastComponent(resolved.get());
  return name == "convert" || name == "compare" || name.starts_with("convert-im") ||
         name.starts_with("compare-im") || name.starts_with("magick");
}

LiteralNames::LiteralNames(const std::string& program, std::vector<std::string> arguments)
    : arguments_(std::move(arguments)) {
  const bool misread = IsImageMagick(program);
  for (std::size_t i = 1; i < arguments_.size(); ++i) {
    std::string& argument = arguments_[i];
    if (argument.find('/') == std::string::npos || argument.starts_with(kEscapedOption)) continue;
    if (misread) {
      argument = ThroughDescriptor(argument);
    } else if (argument.front() == '-' || argument.front() == '@') {
      argument.insert(0, "./");
    }
  }
}

std::string LiteralNames::ThroughDescriptor(const std::string& argument) {
  const bool first_frame = HasFirstFrameSuffix(argument);
  const std::string path = first_frame ? WithoutFirstFrame(argument) : argument;
  const bool another_has_this_name = first_frame && Exists(argument);
  if (!HasSpecialCharacter(path) && !IsRelativeAndMisread(path) && !another_has_this_name) {
    return argument;
  }

  const std::string name = LastComponent(path);
  // Through its directory where that is enough, so that the program still sees the extension.
  std::string safe = HasSpecialCharacter(name) || another_has_this_name
                         ? Hold(path)
                         : Hold(path.substr(0, path.size() - name.size())) + "/" + name;
  if (first_frame) safe.append(kFirstFrame);
  return safe;
}

// Holds a path open while the program runs, and returns the path by which the program reaches it.
std::string LiteralNames::Hold(const std::string& path) {
  UniqueFd held(open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!held.valid()) {
    error_ = errno;
    return {};
  }
  std::string reached = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(held.get());
  held_.push_back(std::move(held));
  return reached;
}

}  // namespace keldo::media
