#include "render/resolution.h"

#include <syslog.h>

#include "fakes/core_test.h"
#include "fakes/fake_libraw.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using Size = std::pair<unsigned, unsigned>;

constexpr Size kUntouched{7, 8};

class ResolutionTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    fake_libraw() = {};
  }

  static std::optional<Size> Measure(const std::string& path) {
    Size size = kUntouched;
    if (!GetImageResolution(path, size.first, size.second)) return std::nullopt;
    return size;
  }

  // What is made of dcraw's report.
  static std::optional<Size> Parse(const std::string& report) {
    fake().on_popen = [report](const PopenCall&) { return report; };
    Size size = kUntouched;
    if (!GetDcrawOutputSize("/v/a.x3f", size.first, size.second)) return std::nullopt;
    return size;
  }
};

// ---- Which reader ----

TEST_F(ResolutionTest, AnOrdinaryPhotoIsMeasuredFromItsHeader) {
  fake().image_sizes = {{"/v/a.jpg", {4000, 3000}}, {"/v/a.heic", {1, 2}}};
  EXPECT_EQ(Measure("/v/a.jpg"), (Size{4000, 3000}));
  EXPECT_EQ(Measure("/v/a.heic"), (Size{1, 2}));
  EXPECT_EQ(Measure("/v/b.jpg"), std::nullopt);
  EXPECT_TRUE(fake_libraw().calls.empty());
  EXPECT_TRUE(fake().popens.empty());
  ExpectNoLog();
}

TEST_F(ResolutionTest, ARawPhotoIsMeasuredByLibRaw) {
  fake_libraw().width = 65535;
  fake_libraw().height = 4001;
  fake().image_sizes = {{"/v/a.nef", {1, 1}}};
  EXPECT_EQ(Measure("/v/a.nef"), (Size{65535, 4001}));
  EXPECT_EQ(Measure("/v/a.CR2"), (Size{65535, 4001}));
  EXPECT_EQ(fake_libraw().calls, (Texts{"ReadOutputSize(/v/a.nef)", "ReadOutputSize(/v/a.CR2)"}));
  EXPECT_EQ(fake().CallsOf({"RunIsolated"}).size(), 2u);
  EXPECT_TRUE(fake().CallsOf({"KELDOIndexImgResGet"}).empty());
}

TEST_F(ResolutionTest, AnX3fIsMeasuredByDcraw) {
  fake().on_popen = [](const PopenCall&) { return "Output size: 2640 x 1760\n"; };
  EXPECT_EQ(Measure("/v/IMG.X3F"), (Size{2640, 1760}));
  ASSERT_EQ(fake().popens.size(), 1u);
  EXPECT_EQ(fake().popens[0].mode, "rB");
  EXPECT_EQ(fake().popens[0].argv, (Texts{"/usr/bin/dcraw", "-i", "-v", "/v/IMG.X3F"}));
  EXPECT_TRUE(fake_libraw().calls.empty());
  EXPECT_EQ(fake().CallsOf({"KLIBCPclose"}).size(), 1u);
}

// ---- LibRaw ----

TEST_F(ResolutionTest, AFileThatLibRawCannotOpenIsLogged) {
  fake_libraw().size_step = LibRawSizeStep::kOpenFailed;
  EXPECT_EQ(Measure("/v/a.nef"), std::nullopt);
  ExpectOneLog(LOG_ERR, "keldothumb:931 Failed to open file [/v/a.nef] using libraw");
  EXPECT_TRUE(fake().popens.empty());
}

TEST_F(ResolutionTest, SizesThatLibRawCannotAdjustAreLogged) {
  fake_libraw().size_step = LibRawSizeStep::kAdjustFailed;
  EXPECT_EQ(Measure("/v/a.nef"), std::nullopt);
  ExpectOneLog(LOG_ERR, "keldothumb:936 Failed to adjust sizes info [/v/a.nef] using libraw");
}

TEST_F(ResolutionTest, AReaderThatDiesCountsAsAFailedOpening) {
  fake().FailCall("RunIsolated");
  EXPECT_EQ(Measure("/v/a.nef"), std::nullopt);
  ExpectOneLog(LOG_ERR, "keldothumb:931 Failed to open file [/v/a.nef] using libraw");
}

// ---- dcraw's report ----

TEST_F(ResolutionTest, TheOutputSizeIsFoundAmongTheOtherLines) {
  EXPECT_EQ(Parse("\nFilename: /v/a.x3f\nTimestamp: Sat Nov  1 12:13:14 2008\n"
                  "Full size:   4608 x 3456\nImage size: 1 x 2\nOutput size: 4000 x 3000\n"
                  "Output size: 5 x 6\n"),
            (Size{4000, 3000}));
  EXPECT_EQ(Parse("Output size:4000x3000"), (Size{4000, 3000}));
  EXPECT_EQ(Parse("Output size:\t 4000 x  3000 \t\n"), (Size{4000, 3000}));
  ExpectNoLog();
}

TEST_F(ResolutionTest, LinesThatDoNotParseAreSkipped) {
  for (const char* line : {"Output size:\n", "Output size: \n", "Output size\n",
                           "Output size: large\n", "Output size: 40\n", "Output size: 40 by 30\n",
                           "output size: 40 x 30\n", " Output size: 40 x 30\n",
                           "Output size : 40 x 30\n", "Output sizes: 40 x 30\n", ":\n", "\n", ""}) {
    EXPECT_EQ(Parse(line), std::nullopt) << line;
    EXPECT_EQ(Parse(std::string(line) + "Output size: 4 x 3\n"), (Size{4, 3})) << line;
  }
  EXPECT_EQ(Parse("Thumb size: Output size: 4 x 3\n"), std::nullopt);
  ExpectNoLog();
}

TEST_F(ResolutionTest, ALongLineIsReadInPieces) {
  // The second piece of the first line looks like a line of its own.
  EXPECT_EQ(Parse(std::string(255, 'x') + "Output size: 4 x 3\n"), (Size{4, 3}));
  EXPECT_EQ(Parse(std::string(254, 'x') + "Output size: 4 x 3\n"), std::nullopt);
}

TEST_F(ResolutionTest, ADcrawThatCannotBeStartedIsLogged) {
  fake().FailCall("KLIBCPopen");
  EXPECT_EQ(Measure("/v/a.x3f"), std::nullopt);
  ExpectOneLog(LOG_ERR, "keldothumb:952 [Error] KLIBCPopen: /usr/bin/dcraw -i -v /v/a.x3f");
}

// ---- The report to the index ----

TEST_F(ResolutionTest, BothSizesAreReportedToTheIndex) {
  fake().image_sizes = {{"/v/a.jpg", {4000, 3000}}, {"/v/t.jpg", {1280, 960}}};
  ReportConvertedResolution({"/v", nullptr}, "/v/a.jpg", "/v/t.jpg");
  ASSERT_EQ(fake().convert_reports.size(), 1u);
  const ConvertReport& report = fake().convert_reports[0];
  EXPECT_EQ(report.source.path(), "/v/a.jpg");
  EXPECT_EQ(report.source.resolution_x(), 4000);
  EXPECT_EQ(report.source.resolution_y(), 3000);
  EXPECT_EQ(report.converted.path(), "/v/t.jpg");
  EXPECT_EQ(report.converted.resolution_x(), 1280);
  EXPECT_EQ(report.converted.resolution_y(), 960);
  EXPECT_EQ(report.extra, Json::Value(Json::objectValue));
  EXPECT_TRUE(report.extra.isObject());
  EXPECT_EQ(fake().calls, (Texts{"KELDOIndexImgResGet(/v/a.jpg)", "KELDOIndexImgResGet(/v/t.jpg)",
                                 "KELDOIDX_IndexConvertAdd(/v/a.jpg, /v/t.jpg)"}));
  ExpectNoLog();
}

TEST_F(ResolutionTest, AFailedReportIsIgnored) {
  fake().image_sizes = {{"/v/a.jpg", {4000, 3000}}, {"/v/t.jpg", {1280, 960}}};
  fake().FailCall("KELDOIDX_IndexConvertAdd");
  ReportConvertedResolution({"/v", nullptr}, "/v/a.jpg", "/v/t.jpg");
  ExpectNoLog();
}

TEST_F(ResolutionTest, APhotoThatCannotBeMeasuredIsNotReported) {
  fake().image_sizes = {{"/v/t.jpg", {1280, 960}}};
  ReportConvertedResolution({"/v", nullptr}, "/v/a.jpg", "/v/t.jpg");
  ExpectOneLog(LOG_ERR, "keldothumb:987 [Error] GetImageResolution: /v/a.jpg");
  EXPECT_EQ(fake().calls, (Texts{"KELDOIndexImgResGet(/v/a.jpg)"}));
}

TEST_F(ResolutionTest, AThumbnailThatCannotBeMeasuredIsNotReported) {
  fake().image_sizes = {{"/v/a.jpg", {4000, 3000}}};
  ReportConvertedResolution({"/v", nullptr}, "/v/a.jpg", "/v/t.jpg");
  ExpectOneLog(LOG_ERR, "keldothumb:991 [Error] GetImageResolution: /v/t.jpg");
  EXPECT_TRUE(fake().convert_reports.empty());
}

}  // namespace
}  // namespace keldo::testing
