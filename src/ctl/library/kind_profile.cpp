#include "ctl/library/kind_profile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/conf_parser.h"
#include "platform/text.h"
#include "util/files.h"

namespace keldo::ctl {
namespace {

bool MakesOneOf(const std::string& file_name, ThumbSizeMask kinds) {
  const ThumbKindInfo* kind = FindKind(file_name);
  return kind != nullptr && Wants(kinds, kind->kind);
}

std::string SectionText(const KELDOUtils::ConfParser& parser, const std::string& section) {
  std::string text = "[" + section + "]\nphase=0\n";
  for (const char* key : {"size", "quality", "unsharp", "filename"}) {
    const std::string value = parser.getString(section, key, "");
    if (!value.empty()) text += std::string(key) + "=" + value + "\n";
  }
  return text;
}

std::string TextFor(const KELDOUtils::ConfParser& parser, ThumbSizeMask kinds) {
  std::string text;
  for (const std::string& section : parser.enumSections()) {
    if (!keldoindexutils::StartWith(section, "thumb")) continue;
    if (!MakesOneOf(parser.getString(section, "filename", ""), kinds)) continue;
    text += SectionText(parser, section);
  }
  return text;
}

}  // namespace

std::optional<KindProfile> KindProfile::Make(const std::string& profile_path, ThumbSizeMask kinds,
                                             std::string& problem) {
  KELDOUtils::ConfParser parser;
  const bool loaded = parser.loadFromFile(profile_path.c_str()) != 0;
  const std::string text = loaded ? TextFor(parser, kinds) : "";
  if (text.empty()) {
    problem = "has none of these kinds";
    return std::nullopt;
  }
  UniqueFd fd(memfd_create("thumb.conf", MFD_CLOEXEC));
  if (!fd.valid() || !WriteAll(fd.get(), text)) {
    problem = "a copy of it cannot be made: " + std::string(std::strerror(errno));
    return std::nullopt;
  }
  return KindProfile(std::move(fd));
}

KindProfile::KindProfile(UniqueFd fd) : fd_(std::move(fd)) {}

std::string KindProfile::path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_.get());
}

}  // namespace keldo::ctl
