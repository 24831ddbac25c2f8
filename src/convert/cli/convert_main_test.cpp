#include "convert/cli/convert_main.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>

#include "support/file_test.h"
#include "support/images.h"

namespace {

using keldo::convert::ConvertMain;
using keldo::convert::ImageMagick;
using keldo::testing::CornerDistance;
using keldo::testing::Corners;
using keldo::testing::DecodeJpeg;
using keldo::testing::EncodeJpeg;
using keldo::testing::FourCorners;
using keldo::testing::Image;
using keldo::testing::kCornerColours;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

struct Result {
  int status;
  std::string messages;
};

// Pixels of three bytes, the first row at the bottom.
std::string TgaFile(int width, int height, char value) {
  constexpr int kByte = 256;
  std::string file(18, '\0');
  file[2] = 2;
  file[12] = static_cast<char>(width % kByte);
  file[13] = static_cast<char>(width / kByte);
  file[14] = static_cast<char>(height % kByte);
  file[15] = static_cast<char>(height / kByte);
  file[16] = 24;
  return file + std::string(static_cast<std::size_t>(width * height * 3), value);
}

std::string IccProfile(std::size_t size) {
  std::string profile(size, 'p');
  return profile.replace(36, 4, "acsp");
}

// A command for one thumbnail of at most 30 by 30 pixels.
Arguments CommandOf(const std::string& input, const std::string& output) {
  return {input,      "-thumbnail", "30x30>",   "-quality", "90",
          "+profile", "!icc,*",     "-flatten", output};
}

class ConvertMainTest : public keldo::testing::FileTest {
 protected:
  static Result Convert(const Arguments& arguments, const ImageMagick& magick = {}) {
    testing::internal::CaptureStderr();
    const int status = ConvertMain(arguments, magick);
    return {status, testing::internal::GetCapturedStderr()};
  }

  // In place of ImageMagick, a program that leaves a file "called" with its arguments.
  ImageMagick StandIn(int status) const {
    ImageMagick magick;
    magick.program = Write("convert",
                           "#!/bin/sh\nprintf '%s\\n' \"$@\" >\"$(dirname \"$0\")/called\"\n"
                           "exit " +
                               std::to_string(status) + "\n");
    fs::permissions(magick.program, fs::perms::owner_all);
    return magick;
  }

  // "30x20", or what is wrong. The colours must be where they were.
  static std::string Look(const std::string& path) {
    const std::optional<Image> image = DecodeJpeg(Read(path));
    if (!image) return fs::exists(path) ? "no image" : "missing";
    if (CornerDistance(Corners(*image), kCornerColours) > 20) return "other colours";
    return std::to_string(image->width) + "x" + std::to_string(image->height);
  }

  static std::string Photo() { return EncodeJpeg(FourCorners(90, 60)); }

  static std::vector<std::string> Words(const std::string& line) {
    std::istringstream words(line);
    return {std::istream_iterator<std::string>(words), {}};
  }
};

TEST_F(ConvertMainTest, AChainOfThumbnails) {
  const Result result = Convert(
      Words("-define registry:temporary-path=/tmp -limit thread 1 " + Write("in.jpg", Photo()) +
            " ( -clone 0 -define jpeg:size=60x60 -thumbnail 60x60>^ -quality 90 -flatten -write " +
            In("1.jpg") + " ) -delete 0 ( +clone -thumbnail 45x45> -quality 90 -flatten -write " +
            In("2.jpg") + " +delete ) -thumbnail 30x30> -quality 90 -flatten " + In("3.jpg")));
  EXPECT_EQ(result.messages, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(Look(In("1.jpg")), "90x60");
  EXPECT_EQ(Look(In("2.jpg")), "45x30");
  EXPECT_EQ(Look(In("3.jpg")), "30x20");
}

TEST_F(ConvertMainTest, FileNamesAreLiteral) {
  const fs::path before = fs::current_path();
  fs::create_directory(In("d"));
  fs::current_path(In("d"));
  for (const std::string name : {"a b.jpg", "a\nb.jpg", "%d.jpg", "a[1].jpg", "png:a.jpg", "-x.jpg",
                                 "@x.jpg", "\xff\xfe.jpg", "*.jpg", "'\".jpg"}) {
    std::ofstream(name, std::ios::binary) << Photo();
    const std::string output = "-" + name;
    const Result result = Convert(CommandOf(name, output));
    EXPECT_EQ(result.status, 0) << name << result.messages;
    EXPECT_EQ(Look(output), "30x20") << name;
    fs::remove(name);
    fs::remove(output);
    EXPECT_TRUE(fs::is_empty(".")) << name;
  }
  fs::current_path(before);
}

TEST_F(ConvertMainTest, FirstFrame) {
  Write("a.jpg", Photo());
  EXPECT_EQ(Convert(CommandOf(In("a.jpg[0]"), In("out.jpg"))).status, 0);
  EXPECT_EQ(Look(In("out.jpg")), "30x20");
}

TEST_F(ConvertMainTest, AnExistingOutputIsOverwrittenInPlace) {
  const std::string output = Write("out.jpg", std::string(100'000, 'x'));
  fs::create_hard_link(output, In("link.jpg"));
  EXPECT_EQ(Convert(CommandOf(Write("in.jpg", Photo()), output)).status, 0);
  EXPECT_EQ(Look(output), "30x20");
  EXPECT_EQ(Read(output), Read(In("link.jpg")));
}

TEST_F(ConvertMainTest, AFailedRunLeavesNoOutput) {
  const std::string cut = Photo().substr(0, 100);
  const std::map<std::string, std::string> table{
      {Write("empty.jpg", ""), "the file is empty"},
      {Write("cut\n.jpg", cut), ""},
      {In("missing.jpg"), "No such file or directory"},
      {Write("huge.jpg", keldo::testing::JpegHeaderOf(65500, 65500)), "limit"}};
  for (const auto& [input, reason] : table) {
    const std::string old = Write("old.jpg", "as it was");
    for (const std::string& output : {old, In("new.jpg")}) {
      const Result result = Convert(CommandOf(input, output));
      EXPECT_EQ(result.status, 1) << input;
      EXPECT_THAT(result.messages, StartsWith("convert-thumb: ")) << input;
      EXPECT_THAT(result.messages, HasSubstr(".jpg: ")) << input;
      EXPECT_THAT(result.messages, HasSubstr(reason)) << input;
      EXPECT_EQ(result.messages.find('\n'), result.messages.size() - 1) << input;
    }
    EXPECT_EQ(Read(old), "as it was") << input;
    EXPECT_FALSE(fs::exists(In("new.jpg"))) << input;
  }
}

TEST_F(ConvertMainTest, AnOutputThatCannotBeOpened) {
  const Result result = Convert(CommandOf(Write("in.jpg", Photo()), In("missing/out.jpg")));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.messages, "convert-thumb: " + In("in.jpg") + ": cannot write " +
                                 In("missing/out.jpg") + ": No such file or directory\n");
}

TEST_F(ConvertMainTest, AnOutputThatCannotBeWritten) {
  const std::string input = Write("in.jpg", Photo());
  const pid_t child = fork();
  if (child == 0) {
    const rlimit small{100, 100};
    setrlimit(RLIMIT_FSIZE, &small);
    const Arguments arguments = CommandOf(input, In("out.jpg"));
    // The captured messages would be in a file that is too long.
    _exit(ConvertMain(arguments) == 1 && !fs::exists(In("out.jpg")) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(ConvertMainTest, ImageMagickReadsOtherFormats) {
  for (const std::string name : {"a.tga", "100% [1].tga"}) {
    const Result result = Convert(CommandOf(Write(name, TgaFile(60, 30, '\x40')), In("%d.jpg")));
    if (name == "a.tga") {
      EXPECT_EQ(result.status, 0) << result.messages;
      const auto image = DecodeJpeg(Read(In("%d.jpg")));
      ASSERT_TRUE(image);
      EXPECT_EQ(image->width, 30);
    } else {
      // Recognised by its extension alone, which such a name does not have.
      EXPECT_EQ(result.status, 1);
      EXPECT_FALSE(fs::exists(In("%d.jpg")));
    }
    fs::remove(In("%d.jpg"));
  }
}

TEST_F(ConvertMainTest, ImageMagickRunsUnderOurPolicy) {
  // The system's policy refuses images of this width.
  const std::string wide = Write("wide.tga", TgaFile(17'000, 4, '\x40'));
  const Result result = Convert(CommandOf(wide, In("wide.jpg")));
  EXPECT_EQ(result.status, 0) << result.messages;

  for (const auto& [name, content] : std::map<std::string, std::string>{
           {"a.svg", "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"},
           {"a.txt", "text"},
           {"a.mvg", "viewbox 0 0 9 9 fill red rectangle 0,0 9,9"},
           {"a.msl", "<image><read filename='wide.tga'/></image>"},
           {"a.ps", "%!PS\nshowpage\n"},
           {"a.pdf", "%PDF-1.4\n"},
           {"a.eps", "%!PS-Adobe-3.0 EPSF-3.0\n"},
           {"a.xpm", "/* XPM */\nstatic char *a[] = {\"1 1 1 1\",\"a c red\",\"a\"};"}}) {
    const Result refused = Convert(CommandOf(Write(name, content), In("out.jpg")));
    EXPECT_EQ(refused.status, 1) << name;
    EXPECT_THAT(refused.messages,
                AnyOf(HasSubstr("security policy"), HasSubstr("no decode delegate")))
        << name;
    EXPECT_FALSE(fs::exists(In("out.jpg"))) << name;
  }
  // Nor is anything else written, nor a program run or another list of arguments read.
  const std::string photo = Write("in.jpg", Photo());
  for (const Arguments& arguments : std::vector<Arguments>{{photo, In("out.png")},
                                                           {photo, "ps:" + In("out")},
                                                           {"@" + photo, In("out.jpg")},
                                                           {"label:x", In("out.jpg")},
                                                           {"http://127.0.0.1/", In("out.jpg")},
                                                           {"|true", In("out.jpg")},
                                                           {"xc:red", In("out.jpg")},
                                                           {"mvg:" + In("a.mvg"), In("out.jpg")},
                                                           {"msl:" + In("a.msl"), In("out.jpg")}}) {
    EXPECT_EQ(Convert(arguments).status, 1) << arguments.front();
  }
  EXPECT_FALSE(fs::exists(In("out.jpg")));
}

TEST_F(ConvertMainTest, ImageMagickRunsOtherCommandLinesUnchanged) {
  const ImageMagick magick = StandIn(5);
  const std::string photo = Write("in.jpg", Photo());
  EXPECT_EQ(Convert({photo, "-resize", "10x10", In("out.jpg")}, magick).status, 5);
  EXPECT_EQ(Read(In("called")), photo + "\n-resize\n10x10\n" + In("out.jpg") + "\n");
  EXPECT_FALSE(fs::exists(In("out.jpg")));
}

TEST_F(ConvertMainTest, APhotoIsNotWrittenTo) {
  const std::string photo = Write("in.jpg", Photo());
  fs::create_symlink(photo, In("soft.jpg"));
  fs::create_hard_link(photo, In("hard.jpg"));
  for (const std::string& output : {photo, In("soft.jpg"), In("hard.jpg")}) {
    const Result result = Convert(CommandOf(photo, output));
    EXPECT_EQ(result.status, 1) << output;
    EXPECT_THAT(result.messages, HasSubstr(output + " is the photo itself\n"));
    EXPECT_EQ(Read(photo), Photo()) << output;
  }
}

TEST_F(ConvertMainTest, ImageMagickReadsWhatIsNotARegularFile) {
  ASSERT_EQ(mkfifo(In("pipe.jpg").c_str(), 0600), 0);
  EXPECT_EQ(Convert(CommandOf(In("pipe.jpg"), In("out.jpg")), StandIn(3)).status, 3);
  EXPECT_TRUE(fs::exists(In("called")));
  EXPECT_FALSE(fs::exists(In("out.jpg")));
}

TEST_F(ConvertMainTest, OutputsOfImageMagick) {
  const std::string input = Write("in.unknown", "unknown");
  EXPECT_EQ(Convert(CommandOf(input, In("out.jpg")), StandIn(0)).status, 0);
  EXPECT_TRUE(fs::exists(In("out.jpg")));
  Write("out.jpg", "as it was");
  EXPECT_EQ(Convert(CommandOf(input, In("out.jpg")), StandIn(1)).status, 1);
  EXPECT_EQ(Read(In("out.jpg")), "as it was");
}

TEST_F(ConvertMainTest, WithoutImageMagick) {
  ImageMagick magick;
  magick.program = "/nonexistent/convert";
  const Result result = Convert(CommandOf(Write("in.unknown", "unknown"), In("out.jpg")), magick);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.messages, "convert-thumb: " + In("in.unknown") +
                                 " needs ImageMagick's /nonexistent/convert, which is not "
                                 "installed\n");
  EXPECT_FALSE(fs::exists(In("out.jpg")));
}

TEST_F(ConvertMainTest, ProfilesAreAttachedButNotConverted) {
  const auto convert = [&](const std::string& photo, const std::string& icc) {
    fs::remove(In("called"));
    Arguments arguments = CommandOf(Write("in.jpg", photo), In("out.jpg"));
    arguments.insert(arguments.begin() + 1, {"-profile", Write("p.icc", icc)});
    EXPECT_EQ(Convert(arguments, StandIn(0)).status, 0);
    return fs::exists(In("called")) ? "ran ImageMagick" : Read(In("out.jpg"));
  };
  EXPECT_THAT(convert(Photo(), IccProfile(200)), HasSubstr(IccProfile(200)));
  const std::string with_profile = EncodeJpeg(FourCorners(90, 60), {.icc = IccProfile(300)});
  EXPECT_EQ(convert(with_profile, IccProfile(200)), "ran ImageMagick");
  EXPECT_EQ(convert(Photo(), "no profile at all"), "ran ImageMagick");
  EXPECT_EQ(convert(Photo(), ""), "ran ImageMagick");
}

// As ImageMagick does, which then leaves the alpha channel out.
TEST_F(ConvertMainTest, ImageMagickHandlesTransparencyThatIsNotFlattened) {
  Arguments arguments =
      CommandOf(Write("gray.jpg", EncodeJpeg(FourCorners(9, 9), {.gray = true})), In("out.jpg"));
  arguments.erase(arguments.end() - 2);
  EXPECT_EQ(Convert(arguments, StandIn(0)).status, 0);
  EXPECT_TRUE(fs::exists(In("called")));
  fs::remove(In("called"));
  arguments.front() = Write("in.jpg", Photo());
  EXPECT_EQ(Convert(arguments, StandIn(0)).status, 0);
  EXPECT_FALSE(fs::exists(In("called")));
}

TEST_F(ConvertMainTest, PrintsItsVersionAndFormats) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(Convert({"--version"}, StandIn(1)).status, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "convert-thumb " KELDO_VERSION "\nFormats: JPEG BMP PNM PNG TIFF WEBP GIF HEIC\n");
  EXPECT_EQ(Convert({"-version"}, StandIn(3)).status, 3) << "ImageMagick's option";
}

TEST_F(ConvertMainTest, TheProgramWorksWithAnyStandardDescriptors) {
  const std::string command = "cd " + In("") +
                              " && " KELDO_CONVERT_THUMB
                              " in.jpg -thumbnail '30x30>' -quality 90 -flatten out.jpg ";
  Write("in.jpg", Photo());
  // A thumbnail does not get the number of a descriptor that the caller closed.
  EXPECT_EQ(system((command + "<&- >&- 2>&-").c_str()), 0);
  EXPECT_EQ(Look(In("out.jpg")), "30x20");
  fs::remove(In("out.jpg"));
  Write("in.jpg", Photo().substr(0, 100));
  EXPECT_EQ(WEXITSTATUS(system((command + "2>messages").c_str())), 1);
  EXPECT_THAT(Read(In("messages")), StartsWith("convert-thumb: in.jpg: "));
  EXPECT_FALSE(fs::exists(In("out.jpg")));
  // Nobody reads the messages.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  constexpr int kErrors = 9;
  ASSERT_EQ(dup2(ends[1], kErrors), kErrors);
  EXPECT_EQ(WEXITSTATUS(system((command + "2>&9").c_str())), 1);
  close(kErrors);
  close(ends[1]);
  EXPECT_FALSE(fs::exists(In("out.jpg")));
}

}  // namespace
