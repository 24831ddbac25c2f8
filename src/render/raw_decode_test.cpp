#include "render/raw_decode.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "fakes/core_test.h"
#include "fakes/fake_libraw.h"
#include "fakes/profiles.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using Lines = std::vector<LogLine>;

// The largest thumbnail of the standard profiles.
constexpr unsigned kLargest = 1280;

blkcnt_t BlocksOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_blocks;
}

class RawDecodeTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    fake_libraw() = {};
    LoadProfiles(profiles_, In("thumb.conf"));
    MakeDir(ea_);
    WriteFile(raw_, "raw photo");
    WriteFile(x3f_, "raw photo");
  }

  void SetPreview(unsigned length, unsigned width, unsigned height) {
    fake_libraw().preview_length = length;
    fake_libraw().preview_width = width;
    fake_libraw().preview_height = height;
  }

  // dcraw's output by option; no value where it cannot be started.
  void SetDcraw(const std::optional<std::string>& preview, const std::optional<std::string>& full) {
    fake().on_popen = [preview, full](const PopenCall& call) {
      return call.argv.at(1) == "-e" ? preview : full;
    };
  }

  // The options of dcraw's runs.
  [[nodiscard]] static Texts DcrawRuns() {
    Texts options;
    for (const PopenCall& call : fake().popens)
      options.push_back(call.argv.at(1));
    return options;
  }

  // Makes the photo take more blocks than before.
  static void Grow(const std::string& path) {
    const blkcnt_t before = BlocksOf(path);
    WriteFile(path, std::string(100000, 'x'));
    EXPECT_NE(BlocksOf(path), before);
  }

  [[nodiscard]] std::string WithLibRaw() const { return ConvertRawImage(job_, raw_, ea_); }
  [[nodiscard]] std::string WithDcraw() const { return ConvertRawImage(job_, x3f_, ea_); }

  ThumbProfileList profiles_;
  const ThumbJob job_{Dir(), &profiles_};
  ThumbProfileList no_profiles_;
  const ThumbJob empty_job_{Dir(), &no_profiles_};
  const std::string raw_ = In("photo.cr2");
  const std::string x3f_ = In("photo.x3f");
  const std::string ea_ = In("ea");
  const std::string preview_ = In("ea/KELDOPHOTO_THUMB_RAW.jpg");
  const std::string ppm_ = In("ea/KELDOPHOTO_RAW_TEMP.ppm");
};

// ---- The choice of the decoder ----

TEST_F(RawDecodeTest, OnlyX3fGoesToDcraw) {
  SetDcraw("bytes", "bytes");
  for (const char* name : {"a.x3f", "b.X3F", "c.X3f"}) {
    EXPECT_EQ(ConvertRawImage(job_, WriteFile(In(name), "raw"), ea_), ppm_) << name;
  }
  EXPECT_EQ(fake().popens.size(), 6u);
  EXPECT_EQ(fake_libraw().calls, Texts{});
  for (const char* name : {"a.cr2", "b.NEF", "x3f", "a.x3f.dng"}) {
    EXPECT_EQ(ConvertRawImage(job_, WriteFile(In(name), "raw"), ea_), ppm_) << name;
  }
  EXPECT_EQ(fake().popens.size(), 6u);
}

// ---- LibRaw ----

TEST_F(RawDecodeTest, ALargePreviewIsUsed) {
  SetPreview(500, kLargest + 1, 10);
  EXPECT_EQ(WithLibRaw(), preview_);
  EXPECT_EQ(fake_libraw().calls,
            (Texts{"Open(" + raw_ + ")", "UnpackPreview()", "WritePreview(" + preview_ + ")"}));
  EXPECT_EQ(ReadFile(preview_), "preview");
  EXPECT_FALSE(Exists(ppm_));
  EXPECT_TRUE(fake().popens.empty());
  ExpectNoLog();
}

TEST_F(RawDecodeTest, ThePreviewMustBeLargerThanTheLargestThumbnail) {
  SetPreview(500, kLargest, kLargest);
  EXPECT_EQ(WithLibRaw(), ppm_);
  EXPECT_EQ(fake_libraw().calls,
            (Texts{"Open(" + raw_ + ")", "Unpack()", "Process()", "WritePpm(" + ppm_ + ")"}));
  SetPreview(500, kLargest, kLargest + 1);
  EXPECT_EQ(WithLibRaw(), preview_);
  SetPreview(500, kLargest + 1, 0);
  EXPECT_EQ(WithLibRaw(), preview_);
}

TEST_F(RawDecodeTest, AnEmptyPreviewIsNotUsed) {
  SetPreview(0, 5000, 5000);
  EXPECT_EQ(WithLibRaw(), ppm_);
}

TEST_F(RawDecodeTest, WithoutProfilesAnyPreviewIsUsed) {
  const auto convert = [&] { return ConvertRawWithLibRaw(empty_job_, raw_, ea_); };
  SetPreview(1, 1, 0);
  EXPECT_EQ(convert(), preview_);
  SetPreview(1, 0, 1);
  EXPECT_EQ(convert(), preview_);
  SetPreview(1, 0, 0);
  EXPECT_EQ(convert(), ppm_);
}

TEST_F(RawDecodeTest, PreviewSizesCompareAsUnsignedNumbers) {
  SetPreview(500, 0x80000000U, 1);
  EXPECT_EQ(WithLibRaw(), preview_);
  ThumbProfileList negative;
  LoadProfiles(negative, In("negative.conf"),
               "[thumb]\nsize=-1\nfilename=KELDOPHOTO_THUMB_S.jpg\n");
  SetPreview(500, 5000, 5000);
  EXPECT_EQ(ConvertRawWithLibRaw({Dir(), &negative}, raw_, ea_), ppm_);
}

TEST_F(RawDecodeTest, APreviewThatCannotBeExtractedGivesAFullDecode) {
  SetPreview(500, 5000, 5000);
  fake_libraw().unpack_preview = -1;
  EXPECT_EQ(WithLibRaw(), ppm_);
  EXPECT_FALSE(Exists(preview_));

  fake_libraw().unpack_preview = 0;
  fake_libraw().write_preview = -1;
  EXPECT_EQ(WithLibRaw(), ppm_);
  // The caller removes what the failed writer left.
  EXPECT_TRUE(Exists(preview_));
  ExpectNoLog();
}

TEST_F(RawDecodeTest, AFullDecodeEndsAtItsFirstFailure) {
  fake_libraw().unpack = -1;
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_EQ(fake_libraw().calls, (Texts{"Open(" + raw_ + ")", "Unpack()"}));

  fake_libraw() = {};
  fake_libraw().process = 5;
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_EQ(fake_libraw().calls, (Texts{"Open(" + raw_ + ")", "Unpack()", "Process()"}));

  fake_libraw() = {};
  fake_libraw().write_ppm = -1;
  EXPECT_EQ(WithLibRaw(), "");
  ExpectNoLog();
}

TEST_F(RawDecodeTest, AFileThatLibRawCannotOpenIsGivenUp) {
  fake_libraw().opens = false;
  SetPreview(500, 5000, 5000);
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_EQ(fake_libraw().calls, (Texts{"Open(" + raw_ + ")"}));
  EXPECT_TRUE(fake().popens.empty());
  ExpectOneLog(LOG_ERR, "keldothumb:812 Failed to open file [" + raw_ + "] using libraw");
}

TEST_F(RawDecodeTest, ADecoderThatDiesIsLogged) {
  fake().FailCall("RunIsolated");
  EXPECT_EQ(WithLibRaw(), "");
  ExpectOneLog(LOG_ERR, "keldothumb:858 [Error] RAW decoder died on " + raw_);
}

// ---- The photo itself ----

TEST_F(RawDecodeTest, OnlyARegularFileIsDecoded) {
  for (const auto& [extension, line] : {std::pair{".cr2", "841"}, {".x3f", "886"}}) {
    for (const std::string& source :
         {MakeDir(In("directory") + extension), In("none") + extension}) {
      ClearSyslog();
      EXPECT_EQ(ConvertRawImage(job_, source, ea_), "");
      ExpectOneLog(LOG_ERR,
                   std::string("keldothumb:") + line + " " + source + " is not regular file");
    }
  }
  EXPECT_EQ(fake_libraw().calls, Texts{});
  EXPECT_TRUE(fake().popens.empty());
}

TEST_F(RawDecodeTest, APhotoThatGrewWhileLibRawReadItIsDropped) {
  fake_libraw().on_step = [&](const std::string& step) {
    if (step == "Unpack()" || step == "UnpackPreview()") Grow(raw_);
  };
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_FALSE(Exists(ppm_));
  WriteFile(raw_, "raw photo");
  SetPreview(500, 5000, 5000);
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_FALSE(Exists(preview_));
  ExpectNoLog();
}

TEST_F(RawDecodeTest, APhotoThatVanishedWhileLibRawReadItIsDropped) {
  fake_libraw().on_step = [&](const std::string&) { unlink(raw_.c_str()); };
  EXPECT_EQ(WithLibRaw(), "");
  EXPECT_FALSE(Exists(ppm_));
}

TEST_F(RawDecodeTest, APhotoRewrittenInTheSameBlocksIsKept) {
  const blkcnt_t before = BlocksOf(raw_);
  fake_libraw().on_step = [&](const std::string&) { WriteFile(raw_, "another raw photo"); };
  EXPECT_EQ(WithLibRaw(), ppm_);
  EXPECT_EQ(BlocksOf(raw_), before);
  EXPECT_TRUE(Exists(ppm_));
}

TEST_F(RawDecodeTest, APhotoThatGrewWhileDcrawReadItIsDropped) {
  SetDcraw("preview", "ppm");
  fake().image_sizes[preview_] = {5000, 3000};
  const auto answer = fake().on_popen;
  fake().on_popen = [&](const PopenCall& call) {
    Grow(x3f_);
    return answer(call);
  };
  EXPECT_EQ(WithDcraw(), "");
  EXPECT_FALSE(Exists(preview_));
  WriteFile(x3f_, "raw photo");
  fake().image_sizes.clear();
  fake().on_popen = [&](const PopenCall& call) {
    if (call.argv.at(1) == "-w") Grow(x3f_);
    return answer(call);
  };
  EXPECT_EQ(WithDcraw(), "");
  EXPECT_FALSE(Exists(ppm_));
  ExpectNoLog();
}

// ---- dcraw ----

TEST_F(RawDecodeTest, DcrawsPreviewIsUsedFromTheSizeOfTheLargestThumbnailOn) {
  SetDcraw("preview", "ppm");
  for (const auto& size : {std::pair{kLargest, 1U}, {1U, kLargest}, {0x80000000U, 1U}}) {
    fake().popens.clear();
    fake().image_sizes[preview_] = size;
    EXPECT_EQ(WithDcraw(), preview_);
    EXPECT_EQ(DcrawRuns(), (Texts{"-e"}));
    EXPECT_EQ(ReadFile(preview_), "preview");
  }
  ASSERT_EQ(fake().popens.size(), 1u);
  EXPECT_EQ(fake().popens[0].mode, "r");
  EXPECT_EQ(fake().popens[0].argv, (Texts{"/usr/bin/dcraw", "-e", "-c", x3f_}));
  ExpectNoLog();
}

TEST_F(RawDecodeTest, ASmallerPreviewOfDcrawGivesAFullDecode) {
  SetDcraw("preview", "ppm");
  fake().image_sizes[preview_] = {kLargest - 1, kLargest - 1};
  EXPECT_EQ(WithDcraw(), ppm_);
  ASSERT_EQ(DcrawRuns(), (Texts{"-e", "-w"}));
  EXPECT_EQ(fake().popens[1].argv, (Texts{"/usr/bin/dcraw", "-w", "-c", x3f_}));
  EXPECT_EQ(ReadFile(ppm_), "ppm");
  EXPECT_FALSE(Exists(preview_));
  ExpectNoLog();
}

TEST_F(RawDecodeTest, APreviewThatCannotBeMeasuredGivesAFullDecode) {
  SetDcraw("preview", "ppm");
  EXPECT_EQ(WithDcraw(), ppm_);
  EXPECT_FALSE(Exists(preview_));
}

TEST_F(RawDecodeTest, WithoutProfilesDcrawDecodesInFull) {
  SetDcraw("preview", "ppm");
  fake().image_sizes[preview_] = {5000, 5000};
  EXPECT_EQ(ConvertRawWithDcraw(empty_job_, x3f_, ea_), ppm_);
}

TEST_F(RawDecodeTest, AMissingPreviewOfDcrawGivesAFullDecode) {
  SetDcraw("", "ppm");
  WriteFile(preview_, "of an earlier run");
  fake().image_sizes[preview_] = {5000, 5000};
  EXPECT_EQ(WithDcraw(), ppm_);
  EXPECT_FALSE(Exists(preview_));
  ExpectNoLog();
}

TEST_F(RawDecodeTest, AFailedFullDecodeLeavesNothing) {
  SetDcraw("", "");
  EXPECT_EQ(WithDcraw(), "");
  EXPECT_FALSE(Exists(preview_));
  EXPECT_FALSE(Exists(ppm_));
  ExpectOneLog(LOG_ERR, "keldothumb:905 Failed to convert raw " + x3f_ + " to pnm");
}

TEST_F(RawDecodeTest, ADcrawThatCannotBeStartedLeavesNothing) {
  SetDcraw(std::nullopt, std::nullopt);
  WriteFile(ppm_, "of an earlier run");
  EXPECT_EQ(WithDcraw(), "");
  EXPECT_FALSE(Exists(ppm_));
  EXPECT_EQ(CapturedSyslog(),
            (Lines{{LOG_ERR, "keldothumb:751 KLIBCPopen [/usr/bin/dcraw -e -c] failed"},
                   {LOG_ERR, "keldothumb:751 KLIBCPopen [/usr/bin/dcraw -w -c] failed"},
                   {LOG_ERR, "keldothumb:905 Failed to convert raw " + x3f_ + " to pnm"}}));
}

// ---- The steps by themselves ----

TEST_F(RawDecodeTest, AnExtractionSucceedsWhenBothStepsDo) {
  LibRawFile raw(raw_);
  EXPECT_TRUE(ExtractRawPreview(raw, preview_));
  fake_libraw().write_preview = 1;
  EXPECT_FALSE(ExtractRawPreview(raw, preview_));
  EXPECT_TRUE(DecodeRawToPpm(raw, ppm_));
  fake_libraw().unpack = 1;
  EXPECT_FALSE(DecodeRawToPpm(raw, ppm_));
  SetPreview(1, 2, 3);
  EXPECT_TRUE(PreviewIsLargeEnough(raw, 2));
  EXPECT_FALSE(PreviewIsLargeEnough(raw, 3));
}

TEST_F(RawDecodeTest, BothIntermediatesAreRemoved) {
  WriteFile(preview_, "x");
  WriteFile(ppm_, "x");
  WriteFile(In("ea/KELDOPHOTO_THUMB_S.jpg"), "x");
  RemoveRawIntermediates(ea_);
  EXPECT_FALSE(Exists(preview_));
  EXPECT_FALSE(Exists(ppm_));
  EXPECT_TRUE(Exists(In("ea/KELDOPHOTO_THUMB_S.jpg")));
  RemoveRawIntermediates(ea_);
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo::testing
