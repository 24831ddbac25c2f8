#include "fakes/core_test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace keldo::testing {
namespace {

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throw std::runtime_error("cannot stat " + path);
  return status;
}

}  // namespace

CoreTest::CoreTest() : umask_before_(umask(0)) {}

CoreTest::~CoreTest() {
  umask(umask_before_);
}

void CoreTest::SetUp() {
  fake().Reset();
}

void CoreTest::TearDown() {
  EXPECT_EQ(fake().OpenStreams(), 0u) << "a stream of KLIBCPopen was not closed";
  fake().Reset();  // The sandbox is removed now; the fake itself lives to the end of the process.
}

std::string CoreTest::WriteFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
  return path;
}

std::string CoreTest::MakeDir(const std::string& path) {
  std::filesystem::create_directories(path);
  return path;
}

void CoreTest::SetTime(const std::string& path, time_t seconds) {
  const std::array<timespec, 2> times{{{seconds, 0}, {seconds, 0}}};
  if (utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0) {
    throw std::runtime_error("cannot set the time of " + path);
  }
}

time_t CoreTest::ModificationTime(const std::string& path) {
  return StatusOf(path).st_mtime;
}

bool CoreTest::Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

mode_t CoreTest::Mode(const std::string& path) {
  return StatusOf(path).st_mode & 07777;
}

std::string CoreTest::ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void CoreTest::ExpectOneLog(int priority, const std::string& text) {
  EXPECT_EQ(CapturedSyslog(), (std::vector<LogLine>{{priority, text}}));
}

void CoreTest::ExpectNoLog() {
  EXPECT_EQ(CapturedSyslog(), std::vector<LogLine>{});
}

}  // namespace keldo::testing
