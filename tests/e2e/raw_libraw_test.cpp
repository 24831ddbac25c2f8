// RAW photos that the real LibRaw decodes: which intermediate file is used, and damaged files. The
// converter is a stand-in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "e2e/fixtures.h"
#include "support/dng_writer.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string Dng(int preview_width = 0, int preview_height = 0) {
  DngOptions options;
  if (preview_width > 0) {
    options.preview = EncodeJpeg(FourCorners(preview_width, preview_height));
    options.preview_width = preview_width;
    options.preview_height = preview_height;
  }
  return EncodeDng(FourCorners(160, 120), options);
}

class RawLibrawTest : public ::testing::Test {
 protected:
  RawLibrawTest() { box.StartDaemon(AnswerVersion(0)); }

  // The base name of the file that phase 0 was made from; empty if there was none.
  std::string IntermediateOf(const std::string& content) {
    box.AddPhoto("a.dng", content);
    const RunResult run = box.RunOn();
    EXPECT_EQ(run.exit_status, 0);
    EXPECT_THAT(run.log, IsEmpty());
    const auto calls = Calls(run, "convert-thumb");
    EXPECT_EQ(box.List(MetadataOf("a.dng")), ThumbNames("XL B M L SM"));
    return calls.empty() ? "" : calls[0].at(3).substr(MetadataOf("a.dng").size() + 1);
  }

  Sandbox box;
};

TEST_F(RawLibrawTest, WithoutPreviewThePhotoIsDecoded) {
  EXPECT_EQ(IntermediateOf(Dng()), "KELDOPHOTO_RAW_TEMP.ppm");
}

TEST_F(RawLibrawTest, WidePreviewIsUsed) {
  EXPECT_EQ(IntermediateOf(Dng(1281, 600)), "KELDOPHOTO_THUMB_RAW.jpg");
}

TEST_F(RawLibrawTest, TallPreviewIsUsed) {
  EXPECT_EQ(IntermediateOf(Dng(600, 1281)), "KELDOPHOTO_THUMB_RAW.jpg");
}

TEST_F(RawLibrawTest, PreviewAsLargeAsTheLargestThumbnailIsNotUsed) {
  EXPECT_EQ(IntermediateOf(Dng(1280, 1280)), "KELDOPHOTO_RAW_TEMP.ppm");
}

TEST_F(RawLibrawTest, RequestsNameTheIntermediateThenThePhoto) {
  const std::string photo = box.AddPhoto("a.dng", Dng());
  EXPECT_THAT(box.RunOn().requests,
              ElementsAre(VersionRequest(MetadataOf("a.dng") + "/KELDOPHOTO_RAW_TEMP.ppm"),
                          PostRequest(photo)));
}

TEST_F(RawLibrawTest, PhotoDatedInTheFutureKeepsItsThumbnailsUpToDate) {
  const std::time_t next_year = std::time(nullptr) + 365L * 24 * 3600;
  box.SetTime(box.AddPhoto("a.dng", Dng()), next_year);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    EXPECT_EQ(box.Status(ThumbOf("a.dng", kind)).st_mtime, next_year) << kind;
  }
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
}

TEST_F(RawLibrawTest, FileThatIsNotARawPhotoFails) {
  const std::string photo = box.AddPhoto("a.nef", "not an image");
  const RunResult run = box.RunOn();
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text, ::testing::MatchesRegex("[a-z_]+:[0-9]+ Failed to open file "
                                                       "./volume1/photo/a.nef. using libraw"));
  EXPECT_EQ(box.List(MetadataOf("a.nef")), MarkerNames("XL B M L SM S"));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6);
  EXPECT_THAT(run.requests, ElementsAre(PostRequest(photo)));
  EXPECT_THAT(run.invocations, IsEmpty()) << "dcraw is not tried instead";
}

TEST_F(RawLibrawTest, HostileNamesWork) {
  std::vector<std::string> names = {"a[1]%d*.dng", "-x.dng", "a\nb.dng", "\xff.dng"};
  for (const std::string& name : names)
    box.AddPhoto(name, Dng());
  EXPECT_EQ(box.RunOn().exit_status, 0);
  for (const std::string& name : names) {
    EXPECT_EQ(box.List(MetadataOf(name)), ThumbNames("XL B M L SM"));
  }
}

// A damaged file is either decoded or marked as failed, and no intermediate file is left.
void ExpectDoneOrFailed(const Sandbox& box, const std::string& name) {
  const auto names = box.List(MetadataOf(name));
  EXPECT_TRUE(names == ThumbNames("XL B M L SM") || names == MarkerNames("XL B M L SM S"))
      << name << ": " << ::testing::PrintToString(names);
}

TEST_F(RawLibrawTest, TruncatedFilesDoNotStopTheRun) {
  for (const auto& [label, content] : {std::pair{"sensor", Dng()}, {"preview", Dng(1300, 900)}}) {
    for (std::size_t tenth = 0; tenth < 10; ++tenth) {
      box.AddPhoto(std::string("cut-") + label + std::to_string(tenth) + ".dng",
                   content.substr(0, content.size() * tenth / 10));
    }
  }
  box.AddPhoto("whole.dng", Dng());
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.survivors, IsEmpty());
  for (const std::string& name : box.List(kPhotoDir)) {
    if (name != "@eaDir") ExpectDoneOrFailed(box, name);
  }
  EXPECT_EQ(box.List(MetadataOf("whole.dng")), ThumbNames("XL B M L SM"));
}

TEST_F(RawLibrawTest, CorruptFilesDoNotStopTheRun) {
  std::mt19937 random(5);
  const std::string sensor = Dng();
  const std::string preview = Dng(1300, 900);
  for (int copy = 0; copy < 100; ++copy) {
    std::string content = copy % 2 == 0 ? sensor : preview;
    // Most damage is done in the tags, which are at the beginning.
    for (int flip = 0; flip < 8; ++flip) {
      const std::size_t range = flip < 6 ? 900 : content.size();
      char& byte = content[random() % range];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 1U << random() % 8);
    }
    box.AddPhoto("wrong-" + std::to_string(copy) + ".dng", content);
  }
  box.AddPhoto("z-whole.dng", sensor);
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.signal, 0);
  EXPECT_THAT(run.survivors, IsEmpty());
  for (const std::string& name : box.List(kPhotoDir)) {
    if (name != "@eaDir") ExpectDoneOrFailed(box, name);
  }
  EXPECT_EQ(box.List(MetadataOf("z-whole.dng")), ThumbNames("XL B M L SM"));
}

}  // namespace
}  // namespace keldo::testing
