// A small photo library in a temporary directory.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/photo_scan.h"
#include "support/temp_dir.h"

namespace keldo::ctl {

/// Paths are below a directory that is removed at the end of the test.
class LibraryTest : public ::testing::Test {
 protected:
  static constexpr time_t kPhotoTime = 1'000'000'000;
  using Texts = std::vector<std::string>;

  LibraryTest() { std::filesystem::create_directory(root_); }

  [[nodiscard]] std::string In(const std::string& name) const { return root_ + "/" + name; }

  static void Write(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }
  static std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static void SetTime(const std::string& path, time_t time) {
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
  }

  /// A photo: "trip/a.jpg".
  std::string Photo(const std::string& name, const std::string& content = "photo") const {
    Write(In(name), content);
    SetTime(In(name), kPhotoTime);
    return In(name);
  }
  /// The metadata directory of a photo.
  [[nodiscard]] std::string Ea(const std::string& name) const {
    const std::filesystem::path path = In(name);
    return (path.parent_path() / "@eaDir" / path.filename()).string();
  }
  /// Thumbnails of a photo: "XL", as old as the photo plus `age` seconds.
  void Thumbs(const std::string& name, const Texts& kinds, time_t age = 1) const {
    for (const std::string& kind : kinds) {
      const std::string path = Ea(name) + "/KELDOPHOTO_THUMB_" + kind + ".jpg";
      Write(path, "thumbnail");
      SetTime(path, kPhotoTime + age);
    }
  }
  void AllThumbs(const std::string& name) const { Thumbs(name, {"S", "SM", "M", "B", "L", "XL"}); }
  void Markers(const std::string& name, const Texts& kinds) const {
    for (const std::string& kind : kinds)
      Write(Ea(name) + "/KELDOPHOTO_THUMB_" + kind + ".fail", "");
  }

  /// Runs a command line; its output and messages are kept.
  int Status(const Texts& arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = RunCommandLine(arguments, environment_, out, err);
    output_ = out.str();
    errors_ = err.str();
    return status;
  }
  /// The output of a command that exits with `status` and prints no messages.
  std::string Run(const Texts& arguments, int status = 0) {
    EXPECT_EQ(Status(arguments), status) << errors_;
    EXPECT_EQ(errors_, "");
    return output_;
  }

  const testing::TempDir dir_;
  const std::string root_ = dir_.path() + "/photos";
  Environment environment_{dir_.path() + "/state/index.db", dir_.path() + "/keldothumb",
                           dir_.path() + "/none.conf"};
  std::string output_;
  std::string errors_;
};

}  // namespace keldo::ctl
