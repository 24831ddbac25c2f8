#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/file.h"
#include "support/temp_dir.h"

namespace {

using keldo::testing::TempDir;

class KeyValueFile : public ::testing::Test {
 protected:
  KeyValueFile() : path_(dir_.path() + "/conv progress\xFF") {}

  void Write(const std::string& content) { std::ofstream(path_) << content; }
  std::string Content() {
    std::ifstream in(path_);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::string Get(const std::string& key, int expected_length) {
    std::array<char, 4096> value{};
    value.fill('#');
    EXPECT_EQ(KLIBCFileGetKeyValue(path_.c_str(), key.c_str(), value.data(), value.size(), 0),
              expected_length);
    return value.data();
  }
  int Set(const std::string& key, const std::string& value) {
    return KLIBCFileSetKeyValue(path_.c_str(), key.c_str(), value.c_str(), 0);
  }
  std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  TempDir dir_;
  std::string path_;
};

TEST_F(KeyValueFile, ReadsPlainAndQuotedValues) {
  Write("# progress\ntotal=12\ncompleted=\"7\"\nempty=\nquotes=\"\"\n");
  EXPECT_EQ(Get("total", 2), "12");
  EXPECT_EQ(Get("completed", 1), "7");
  EXPECT_EQ(Get("empty", 0), "");
  EXPECT_EQ(Get("quotes", 0), "");
  EXPECT_EQ(Get("absent", 0), "");
}

TEST_F(KeyValueFile, StripsQuotesAtBothEndsOnly) {
  Write("one=\"\nleft=\"a\nright=a\"\ninside=a\"b\ntwice=\"\"a\"\"\n");
  EXPECT_EQ(Get("one", 1), "\"");
  EXPECT_EQ(Get("left", 2), "\"a");
  EXPECT_EQ(Get("right", 2), "a\"");
  EXPECT_EQ(Get("inside", 3), "a\"b");
  EXPECT_EQ(Get("twice", 3), "\"a\"");
}

TEST_F(KeyValueFile, ComparesTheWholeKeyExactly) {
  Write("total_thumb=1\n total=2\nTotal=3\n#total=4\ntotal =5\ntotal=6=7\ntotal=8\n");
  EXPECT_EQ(Get("total", 3), "6=7");
}

TEST_F(KeyValueFile, ReadsALastLineWithoutNewline) {
  Write("total=1\ncompleted=2");
  EXPECT_EQ(Get("completed", 1), "2");
}

TEST_F(KeyValueFile, CutsALongValueAndReturnsItsWholeLength) {
  Write("k=12345\n");
  std::array<char, 8> value{};
  value.fill('#');
  EXPECT_EQ(KLIBCFileGetKeyValue(path_.c_str(), "k", value.data(), 4, 0), 5);
  EXPECT_STREQ(value.data(), "123");
  EXPECT_EQ(value[4], '#');
  EXPECT_EQ(KLIBCFileGetKeyValue(path_.c_str(), "k", value.data(), 0, 0), 5);
  EXPECT_STREQ(value.data(), "123");
}

TEST_F(KeyValueFile, AnUnreadableFileGivesMinusOneAndAnEmptyValue) {
  EXPECT_EQ(Get("total", -1), "");  // no such file
  std::filesystem::create_directory(path_);
  EXPECT_EQ(Get("total", -1), "");
  std::filesystem::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(Get("total", -1), "");  // and does not wait for a writer
}

TEST_F(KeyValueFile, ANewKeyGoesAtTheEnd) {
  EXPECT_EQ(Set("total", "3"), 0);
  EXPECT_EQ(Content(), "total=3\n");
  EXPECT_EQ(Set("completed", "1"), 0);
  EXPECT_EQ(Content(), "total=3\ncompleted=1\n");
}

TEST_F(KeyValueFile, OtherLinesStayByteForByte) {
  Write(
      "# a comment\r\n\n  indented = 1\ntotal=\"3\"\nno equals sign\ntotal_thumb=5\ntotal=9\n\xFF");
  EXPECT_EQ(Set("total", "4"), 0);
  EXPECT_EQ(
      Content(),
      "# a comment\r\n\n  indented = 1\ntotal=4\nno equals sign\ntotal_thumb=5\ntotal=9\n\xFF");
  EXPECT_EQ(Get("total", 1), "4");
}

TEST_F(KeyValueFile, CompletesALastLineWithoutNewline) {
  Write("total=3");
  EXPECT_EQ(Set("completed", "1"), 0);
  EXPECT_EQ(Content(), "total=3\ncompleted=1\n");
  Write("total=3");
  EXPECT_EQ(Set("total", "4"), 0);
  EXPECT_EQ(Content(), "total=4\n");
}

TEST_F(KeyValueFile, AnyValueIsReadBackAsItWasSet) {
  for (const std::string value : {"", "\"", "\"\"", "\"quoted\"", "a=b", " # ;", "\xFF"}) {
    ASSERT_EQ(Set("k", value), 0);
    EXPECT_EQ(Get("k", static_cast<int>(value.size())), value);
  }
}

TEST_F(KeyValueFile, RefusesWhatItCouldNotReadBack) {
  Write("total=3\n");
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"", "1"}, {"a=b", "1"}, {"a\nb", "1"}, {"a", "1\n2"}}) {
    errno = 0;
    EXPECT_LT(Set(key, value), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(Content(), "total=3\n");
}

TEST_F(KeyValueFile, TheFileIsReplacedWithMode0644WhateverTheUmask) {
  Write("total=3\n");
  std::filesystem::permissions(path_, std::filesystem::perms{0600});
  std::ifstream reader(path_);
  for (const mode_t mask : {mode_t{0}, mode_t{0077}}) {
    const mode_t before = umask(mask);
    EXPECT_EQ(Set("total", "4"), 0);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
  }
  // A reader that has the file open still reads all of the old one.
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "total=3\n");
  EXPECT_EQ(Names().size(), 1U);
}

TEST_F(KeyValueFile, ASymbolicLinkIsReplacedItself) {
  const std::string target = dir_.path() + "/target";
  std::ofstream(target) << "total=3\n";
  std::filesystem::create_symlink(target, path_);
  EXPECT_EQ(Set("completed", "1"), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(Content(), "total=3\ncompleted=1\n");
  std::ifstream in(target);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "total=3\n");
}

TEST_F(KeyValueFile, AFailureSetsErrnoAndLeavesNothingBehind) {
  std::filesystem::create_directory(path_);
  errno = 0;
  EXPECT_LT(Set("total", "1"), 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(Names().size(), 1U);

  errno = 0;
  EXPECT_LT(KLIBCFileSetKeyValue((dir_.path() + "/none/f").c_str(), "a", "1", 0), 0);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(KeyValueFile, DoesNotReplaceAnUnreadableFile) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  errno = 0;
  EXPECT_LT(Set("total", "1"), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(std::filesystem::is_fifo(path_));
}

// A limit on the file size stands in for a full disk: the write fails half way.
TEST_F(KeyValueFile, AFailedWriteLeavesTheOldFileAndNoTemporary) {
  Write("total=3\n");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{.rlim_cur = 20, .rlim_max = before.rlim_max};
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);

  errno = 0;
  const int result = Set("total", std::string(100, '7'));
  const int reason = errno;

  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, old_handler);
  EXPECT_LT(result, 0);
  EXPECT_EQ(reason, EFBIG);
  EXPECT_EQ(Content(), "total=3\n");
  EXPECT_EQ(Names().size(), 1U);
}

class FileGetLine : public KeyValueFile {
 protected:
  int Find(const std::string& key) {
    line_.fill('#');
    return KLIBCFileGetLine(path_.c_str(), key.c_str(), line_.data(), line_.size(), 1028);
  }

  std::array<char, 64> line_{};
};

TEST_F(FileGetLine, FindsALineThatEqualsTheKey) {
  Write("/v/a\n/v/photo b\nR:/v/c");
  EXPECT_EQ(Find("/v/photo b"), 10);
  EXPECT_STREQ(line_.data(), "/v/photo b");
  EXPECT_EQ(Find("/v/a"), 4);
  EXPECT_EQ(Find("R:/v/c"), 6);  // the last line has no newline
  EXPECT_STREQ(line_.data(), "R:/v/c");
}

TEST_F(FileGetLine, PartsOfALineDoNotMatch) {
  Write("/v/photo/a\n/v/photo\r\n x\n\n");
  for (const char* key : {"/v/photo", "/v", "photo/a", "x", "", "/v/photo/a\n/v/photo\r"}) {
    EXPECT_EQ(Find(key), 0) << key;
    EXPECT_STREQ(line_.data(), "") << key;
  }
}

TEST_F(FileGetLine, LinesMayBeOfAnyLength) {
  const std::string path = "/" + std::string(9999, 'x');
  Write(path + "y\n" + path + "\n");
  EXPECT_EQ(Find(path), 10000);
  EXPECT_EQ(std::string(line_.data()), path.substr(0, line_.size() - 1));
  EXPECT_EQ(Find(path.substr(0, 9999)), 0);
}

TEST_F(FileGetLine, AnUnreadableFileGivesMinusOne) {
  EXPECT_EQ(Find("/v/a"), -1);
  EXPECT_STREQ(line_.data(), "");
  std::filesystem::create_directory(path_);
  EXPECT_EQ(Find("/v/a"), -1);
}

TEST_F(FileGetLine, AnEmptyFileHasNoLines) {
  Write("");
  EXPECT_EQ(Find("/v/a"), 0);
}

}  // namespace
