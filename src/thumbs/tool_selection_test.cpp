#include "thumbs/tool_selection.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;

constexpr const char* kVariable = "KELDO_CODEC_PKG_NAME";

class ToolSelectionTest : public testing::CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    unsetenv(kVariable);
  }
  void TearDown() override {
    unsetenv(kVariable);
    CoreTest::TearDown();
  }

  static void InstallPackage() { fake().WriteLines(paths::kCodecPackageMarker, {}); }
  static std::optional<std::string> Variable() {
    const char* value = std::getenv(kVariable);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }
};

TEST_F(ToolSelectionTest, TheMarkerFileMeansThatThePackageIsInstalled) {
  EXPECT_FALSE(HasCodecPackage());
  InstallPackage();
  EXPECT_TRUE(HasCodecPackage());
  EXPECT_EQ(Variable(), std::nullopt);
  EXPECT_EQ(fake().CallsOf({"DoesFileExist"}),
            (Texts{"DoesFileExist(/var/packages/Vantrel/target/pack/HAS_HEVC)",
                   "DoesFileExist(/var/packages/Vantrel/target/pack/HAS_HEVC)"}));
}

TEST_F(ToolSelectionTest, WithoutThePackageTheSystemToolsAreUsed) {
  EXPECT_EQ(ConverterPath(), "/usr/keldo/bin/convert-thumb");
  EXPECT_EQ(TranscoderPath(), "/usr/keldo/bin/ffmpeg-thumb");
  EXPECT_EQ(Variable(), std::nullopt);
}

TEST_F(ToolSelectionTest, WithoutThePackageTheEnvironmentStays) {
  setenv(kVariable, "other", 1);
  EXPECT_EQ(ConverterPath(), "/usr/keldo/bin/convert-thumb");
  EXPECT_EQ(TranscoderPath(), "/usr/keldo/bin/ffmpeg-thumb");
  EXPECT_EQ(Variable(), "other");
}

TEST_F(ToolSelectionTest, ThePackagesConverterGetsItsEnvironment) {
  InstallPackage();
  EXPECT_EQ(ConverterPath(), "/var/packages/Vantrel/target/pack/usr/bin/convert");
  EXPECT_EQ(Variable(), "zun");
}

TEST_F(ToolSelectionTest, ThePackagesTranscoderGetsItsEnvironment) {
  InstallPackage();
  EXPECT_EQ(TranscoderPath(), "/var/packages/Vantrel/target/pack/bin/ffmpeg41");
  EXPECT_EQ(Variable(), "zun");
}

TEST_F(ToolSelectionTest, AnotherValueIsOverwritten) {
  InstallPackage();
  setenv(kVariable, "other", 1);
  EXPECT_EQ(ConverterPath(), "/var/packages/Vantrel/target/pack/usr/bin/convert");
  EXPECT_EQ(Variable(), "zun");
}

TEST_F(ToolSelectionTest, EveryCallDecidesAnew) {
  EXPECT_EQ(ConverterPath(), "/usr/keldo/bin/convert-thumb");
  InstallPackage();
  EXPECT_EQ(ConverterPath(), "/var/packages/Vantrel/target/pack/usr/bin/convert");
  fake().Reset();
  EXPECT_EQ(ConverterPath(), "/usr/keldo/bin/convert-thumb");
}

TEST_F(ToolSelectionTest, LessThanHalfAGibibyteIsLowMemory) {
  fake().total_memory_kib = 524287;
  EXPECT_TRUE(IsLowMemory());
  fake().total_memory_kib = 524288;
  EXPECT_FALSE(IsLowMemory());
  fake().total_memory_kib = 64L << 30;
  EXPECT_FALSE(IsLowMemory());
  EXPECT_EQ(fake().calls.size(), 3u);
}

TEST_F(ToolSelectionTest, AnUnknownMemorySizeCountsAsLow) {
  fake().total_memory_kib = std::nullopt;
  EXPECT_TRUE(IsLowMemory());
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo
