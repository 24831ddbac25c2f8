#include "e2e/real_sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

struct Kind {
  const char* name;
  int box;
  bool fills;       ///< The shorter side has the box's length; otherwise the longer one.
  bool from_photo;  ///< Made from the photo; otherwise from XL.
};

constexpr Kind kKinds[] = {{"XL", 1280, true, true}, {"L", 800, true, false},
                           {"B", 640, false, false}, {"M", 320, true, false},
                           {"SM", 240, true, false}, {"S", 120, false, false}};

struct Size {
  int width, height;
};

Size Reduced(Size from, const Kind& kind) {
  const double x = static_cast<double>(kind.box) / from.width;
  const double y = static_cast<double>(kind.box) / from.height;
  const double scale = std::min(1.0, kind.fills ? std::max(x, y) : std::min(x, y));
  return {static_cast<int>(std::lround(from.width * scale)),
          static_cast<int>(std::lround(from.height * scale))};
}

void ExpectThumbnail(const Sandbox& box, const std::string& path, Size size, const Look& look) {
  ASSERT_TRUE(box.Exists(path)) << path;
  EXPECT_EQ(box.Status(path).st_mode, S_IFREG | 0644U) << path;
  const auto image = DecodeJpeg(box.Read(path));
  ASSERT_TRUE(image) << path;
  // djpeg rounds its scaled size, so a side may differ by a pixel.
  EXPECT_LE(std::abs(image->width - size.width), 1) << path;
  EXPECT_LE(std::abs(image->height - size.height), 1) << path;
  EXPECT_LE(CornerDistance(Corners(*image), look.colours), look.tolerance) << path;
}

std::string ShippedProfile() {
  std::ifstream file(KELDO_SHIPPED_PROFILE);
  if (!file) throw std::runtime_error("no shipped profile file");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

void ExpectThumbnails(const Sandbox& box, const std::string& metadata, const Look& look) {
  EXPECT_EQ(box.List(metadata), ThumbNames("XL L B M SM S")) << metadata;
  const Size photo = {look.width, look.height};
  const Size base = Reduced(photo, kKinds[0]);
  for (const Kind& kind : kKinds) {
    ExpectThumbnail(box, metadata + "/KELDOPHOTO_THUMB_" + kind.name + ".jpg",
                    kind.from_photo ? base : Reduced(base, kind), look);
  }
}

RealSandbox::RealSandbox() {
  UseRealTools();
  UseProfile(ShippedProfile());
  StartDaemon(AnswerVersion(0));
}

std::vector<LogLine> RealSandbox::RunTwice(const std::vector<std::string>& targets) {
  std::vector<LogLine> log;
  for (int i = 0; i < 2; ++i) {
    RunResult run = RunOn(targets);
    EXPECT_EQ(run.exit_status, 0);
    log.insert(log.end(), run.log.begin(), run.log.end());
  }
  return log;
}

void RealSandbox::Tool(const std::vector<std::string>& arguments) {
  const RunResult run = Run(arguments);
  ASSERT_EQ(run.exit_status, 0) << arguments[0] << ": " << run.standard_error;
}

}  // namespace keldo::testing
