#include "convert/cli/imagemagick.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/file_test.h"

namespace {

using keldo::convert::ImageMagick;
using keldo::convert::ParseCommand;
using keldo::convert::RunImageMagick;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

class RunImageMagickTest : public keldo::testing::FileTest {
 protected:
  RunImageMagickTest() {
    fs::create_directory(In("policy"));
    std::ofstream(In("policy/policy.xml")) << "<policymap/>";
    // Named like ImageMagick's program, so that names are passed as they are to ImageMagick.
    Script("printf '%s\\0' \"$@\" >\"$(dirname \"$0\")/arguments\"");
  }

  // What runs in place of ImageMagick does this.
  void Script(const std::string& commands) const {
    std::ofstream(magick_.program) << "#!/bin/sh\n" << commands << "\n";
    fs::permissions(magick_.program, fs::perms::owner_all);
  }

  // The arguments that it received.
  Arguments Given() const {
    const std::string content = Read(In("arguments"));
    Arguments arguments;
    for (std::size_t begin = 0; begin < content.size();) {
      const std::size_t end = content.find('\0', begin);
      arguments.push_back(content.substr(begin, end - begin));
      begin = end + 1;
    }
    return arguments;
  }

  ImageMagick magick_{In("convert"), In("policy")};
};

TEST_F(RunImageMagickTest, PassesTheSameArguments) {
  const Arguments arguments{"-list", "a b", "", "a\nb", "%d[1]*", "\xff", "-", "@x", "png:/x"};
  EXPECT_EQ(RunImageMagick(magick_, arguments, "this"), 0);
  EXPECT_THAT(Given(), ElementsAreArray(arguments));
}

TEST_F(RunImageMagickTest, ReturnsItsExitStatus) {
  Script("exit 7");
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 7);
  Script("kill -SEGV $$");
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: " + magick_.program + " was ended by signal 11\n");
}

TEST_F(RunImageMagickTest, TheExitStatusIsKeptWhereSigchldIsIgnored) {
  Script("exit 7");
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 7);
  std::signal(SIGCHLD, before);
}

TEST_F(RunImageMagickTest, SigpipeEndsImageMagickEvenWhereWeIgnoreIt) {
  Script("kill -PIPE $$; exit 7");
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: " + magick_.program + " was ended by signal 13\n");
  std::signal(SIGPIPE, before);
}

TEST_F(RunImageMagickTest, PassesOurStandardDescriptors) {
  Script("echo to-errors >&2");
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "to-errors\n");
}

TEST_F(RunImageMagickTest, PassesOurEnvironmentWithThePolicy) {
  Script("env >\"$(dirname \"$0\")/environment\"");
  setenv("KELDO_TEST_VARIABLE", "kept", 1);
  setenv("MAGICK_CONFIGURE_PATH", "/elsewhere", 1);
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 0);
  unsetenv("MAGICK_CONFIGURE_PATH");
  unsetenv("KELDO_TEST_VARIABLE");
  const std::string environment = Read(In("environment"));
  EXPECT_THAT(environment, HasSubstr("KELDO_TEST_VARIABLE=kept\n"));
  EXPECT_THAT(environment, HasSubstr("MAGICK_CONFIGURE_PATH=" + magick_.policy + "\n"));
  EXPECT_EQ(environment.find("/elsewhere"), std::string::npos);
}

TEST_F(RunImageMagickTest, APolicyBesideOurProgramIsUsed) {
  Script("echo \"$MAGICK_CONFIGURE_PATH\" >\"$(dirname \"$0\")/policy-used\"");
  magick_.policy = In("missing");
  // The tests are in a folder beside the program's.
  const fs::path ourselves = fs::read_symlink("/proc/self/exe");
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 0);
  EXPECT_EQ(Read(In("policy-used")),
            ourselves.parent_path().string() + "/../share/convert-thumb\n");
}

TEST_F(RunImageMagickTest, AMissingPolicyIsNotedAndTheRunGoesOn) {
  Script("echo \"${MAGICK_CONFIGURE_PATH-none}\" >&2");
  magick_.policy = "/nonexistent";
  magick_.ourselves = In("ourselves");
  fs::create_symlink("/nonexistent/bin/convert-thumb", magick_.ourselves);
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: note: /nonexistent is missing; ImageMagick runs with the system's own "
            "policy\nnone\n");
}

TEST_F(RunImageMagickTest, ReportsThatItIsNotInstalled) {
  magick_.program = "/nonexistent/convert";
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this command line"), 1);
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "convert-thumb: this command line needs ImageMagick's /nonexistent/convert, which is not "
      "installed\n");
}

TEST_F(RunImageMagickTest, ReportsThatItCannotBeRun) {
  fs::permissions(magick_.program, fs::perms::owner_read);
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: cannot run " + magick_.program + ": Permission denied\n");
}

TEST_F(RunImageMagickTest, NeverRunsThisProgram) {
  fs::remove(magick_.program);
  fs::create_symlink(fs::read_symlink("/proc/self/exe"), magick_.program);
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, {}, "this"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: this needs ImageMagick, but " + magick_.program + " is this program\n");
}

TEST_F(RunImageMagickTest, TheChildDiesWithUs) {
  Script(
      "echo $$ >\"$(dirname \"$0\")/pid.new\"; cd \"$(dirname \"$0\")\"; mv pid.new pid; "
      "exec sleep 60");
  const pid_t us = fork();
  if (us == 0) _exit(RunImageMagick(magick_, {}, "this"));
  while (!fs::exists(In("pid")))
    usleep(1000);
  const pid_t child = std::stoi(Read(In("pid")));
  EXPECT_EQ(kill(child, 0), 0);
  kill(us, SIGTERM);
  ASSERT_EQ(waitpid(us, nullptr, 0), us);
  // It is dead at once, but whoever adopts it may reap it late.
  const auto is_alive = [&] {
    const std::string state = Read("/proc/" + std::to_string(child) + "/stat");
    return !state.empty() && state.find(") Z") == std::string::npos;
  };
  for (int look = 0; look < 5000 && is_alive(); ++look)
    usleep(1000);
  EXPECT_FALSE(is_alive());
}

// A command for one thumbnail.
Arguments CommandOf(const std::string& input, const std::string& output) {
  return {input, "-thumbnail", "9x9>", "-quality", "90", output};
}

TEST_F(RunImageMagickTest, FileNamesOfAParsedCommandAreLiteral) {
  // Copies the file that the first argument names to the one that the last argument names.
  Script(
      "for last; do :; done; cat \"${1%%\\[0\\]}\" >\"${last#JPEG:}\"; printf '%s\\0' \"$@\" "
      ">\"$(dirname \"$0\")/arguments\"");
  for (const std::string name : {"a%d.jpg", "a*?.jpg", "{a}[1].jpg"}) {
    std::ofstream(In(name)) << name;
    const std::string output = In("out" + name);
    std::ofstream(output).close();
    const Arguments arguments = CommandOf(In(name), output);
    const auto command = ParseCommand(arguments);
    ASSERT_TRUE(command);
    EXPECT_EQ(RunImageMagick(magick_, arguments, *command, "this"), 0);
    EXPECT_EQ(Read(output), name);
    EXPECT_THAT(Given().front(), StartsWith("/proc/"));
    EXPECT_THAT(Given().back(), StartsWith("JPEG:/proc/"));
  }
}

TEST_F(RunImageMagickTest, RelativeFileNamesOfAParsedCommand) {
  const fs::path before = fs::current_path();
  fs::current_path(In(""));
  for (const std::string name : {"png:a.jpg", "-x.jpg", "@a.jpg", "~.jpg", "plain.jpg", "sRGB"}) {
    std::ofstream(name) << name;
    std::ofstream("out.jpg").close();
    Arguments arguments = CommandOf(name, "out.jpg");
    arguments.insert(arguments.end() - 1, {"-colorspace", "sRGB"});
    const auto command = ParseCommand(arguments);
    ASSERT_TRUE(command) << name;
    EXPECT_EQ(RunImageMagick(magick_, arguments, *command, "this"), 0);
    const Arguments given = Given();
    EXPECT_THAT(given.front(), testing::AnyOf("./" + name, StartsWith("/proc/"))) << name;
    arguments.front() = given.front();
    arguments.back() = "./out.jpg";
    EXPECT_THAT(given, ElementsAreArray(arguments));
  }
  fs::current_path(before);
}

TEST_F(RunImageMagickTest, PlainFileNamesOfAParsedCommand) {
  std::ofstream(In("in.psd")) << "psd";
  std::ofstream(In("out.jpg")).close();
  const Arguments arguments = CommandOf(In("in.psd") + "[0]", In("out.jpg"));
  EXPECT_EQ(RunImageMagick(magick_, arguments, *ParseCommand(arguments), "this"), 0);
  EXPECT_THAT(Given(), ElementsAreArray(arguments));
}

TEST_F(RunImageMagickTest, AFileNameThatCannotBePassed) {
  const Arguments arguments = CommandOf(In("missing%d.jpg"), In("out.jpg"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunImageMagick(magick_, arguments, *ParseCommand(arguments), "this"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "convert-thumb: cannot pass a file name to " +
                                                        magick_.program +
                                                        ": No such file or directory\n");
  EXPECT_FALSE(fs::exists(In("arguments")));
}

}  // namespace
