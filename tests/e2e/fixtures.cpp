#include "e2e/fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "support/images.h"
#include "util/path.h"

namespace keldo::testing {

const char* const kSixKinds = R"([thumb_s]
size=120
quality=81
unsharp=0.1x0.1+1+0
filename=KELDOPHOTO_THUMB_S.jpg
phase=2

[thumb_m]
size=320
quality=82
unsharp=0.2x0.2+1+0
filename=KELDOPHOTO_THUMB_M.jpg
phase=0

[thumb_sm]
size=240
quality=83
unsharp=0.3x0.3+1+0
filename=KELDOPHOTO:THUMB_SM.jpg
phase=1

[other]
size=1

[thumb_b]
size=640
quality=84
unsharp=0.4x0.4+1+0
filename=KELDOPHOTO_THUMB_B.jpg
phase=0

[thumb_l]
size=800
quality=85
filename=KELDOPHOTO_THUMB_L.jpg
phase=1

[thumb_xl]
size=1280
quality=86
filename=KELDOPHOTO_THUMB_XL.jpg
phase=0
)";

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

namespace {

std::string WithoutRandomPart(std::string text) {
  const std::string prefix = "KELDOPHOTO.tmp.";
  const std::string any = "XXXXXX";
  const std::size_t at = text.find(prefix);
  return at == std::string::npos ? text : text.replace(at + prefix.size(), any.size(), any);
}

}  // namespace

std::vector<std::vector<std::string>> Calls(const RunResult& run, const std::string& program) {
  std::vector<std::vector<std::string>> calls;
  for (const Invocation& invocation : run.invocations) {
    if (invocation.program != program) continue;
    calls.push_back(invocation.arguments);
    for (std::string& argument : calls.back())
      argument = WithoutRandomPart(argument);
  }
  return calls;
}

bool AutoOrients(const RunResult& run) {
  const auto calls = Calls(run, "convert-thumb");
  return std::ranges::find(calls.at(0), "-auto-orient") != calls.at(0).end();
}

std::string MetadataOf(const std::string& photo_name) {
  return std::string(kPhotoDir) + "/@eaDir/" + photo_name;
}

std::string ThumbOf(const std::string& photo_name, const std::string& kind) {
  return MetadataOf(photo_name) + "/KELDOPHOTO_THUMB_" + kind + ".jpg";
}

std::string MarkerOf(const std::string& photo_name, const std::string& kind) {
  return MetadataOf(photo_name) + "/KELDOPHOTO_THUMB_" + kind + ".fail";
}

namespace {

std::vector<std::string> KindNames(const std::string& kinds, const std::string& extension) {
  std::vector<std::string> names;
  for (const std::string& kind : Words(kinds)) {
    names.push_back("KELDOPHOTO_THUMB_");
    names.back().append(kind).append(extension);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

std::vector<std::string> ThumbNames(const std::string& kinds) {
  return KindNames(kinds, ".jpg");
}

std::vector<std::string> MarkerNames(const std::string& kinds) {
  return KindNames(kinds, ".fail");
}

void ExpectNoBrokenThumbnail(const Sandbox& box, const std::string& directory) {
  for (const std::string& name : box.List(directory)) {
    if (!name.starts_with("KELDOPHOTO_THUMB_") || !name.ends_with(".jpg")) continue;
    EXPECT_TRUE(DecodeJpeg(box.Read(JoinPath(directory, name)))) << JoinPath(directory, name);
  }
}

RunResult RunFromShell(Sandbox& box, const std::string& then) {
  return box.Run({"/bin/sh", "-c",
                  "/program/keldothumb /conf/profile /volume1/photo & "
                  "while ! [ -s /standins/record ]; do :; done; " +
                      then + "; wait $!; echo $?"});
}

int Counter(const Sandbox& box, const std::string& key) {
  const std::string path = "/var/spool/conv_progress_photo";
  if (!box.Exists(path)) return -1;
  std::istringstream lines(box.Read(path));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(key + "=")) return std::stoi(line.substr(key.size() + 1));
  }
  return -1;
}

std::vector<std::string> QueuedDirectories(const Sandbox& box) {
  const std::string path = "/var/spool/thumb_create.queue";
  if (!box.Exists(path)) return {};
  std::istringstream lines(box.Read(path));
  std::vector<std::string> directories;
  for (std::string line; std::getline(lines, line);)
    directories.push_back(line);
  return directories;
}

}  // namespace keldo::testing
