#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/index_ipc.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace {

using keldo::UniqueFd;
using keldo::testing::TempDir;
using keldoindexutils::filesystem::WriteIndexQueue;

class IndexQueue : public ::testing::Test {
 protected:
  IndexQueue() : queue_(dir_.path() + "/thumb_create.queue") {}

  static std::string ContentOf(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::string Content() { return ContentOf(queue_); }
  mode_t Mode() {
    struct stat status {};
    EXPECT_EQ(stat(queue_.c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  TempDir dir_;
  std::string queue_;
};

TEST_F(IndexQueue, AppendsOneLineForEachText) {
  EXPECT_TRUE(WriteIndexQueue("/v/photo a", queue_));
  EXPECT_TRUE(WriteIndexQueue("R:/v/\xFF", queue_));
  EXPECT_EQ(Content(), "/v/photo a\nR:/v/\xFF\n");
}

TEST_F(IndexQueue, ANewFileHasMode0644WhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{0077}}) {
    std::filesystem::remove(queue_);
    const mode_t before = umask(mask);
    EXPECT_TRUE(WriteIndexQueue("/v", queue_));
    umask(before);
    EXPECT_EQ(Mode(), 0644U);
  }
}

TEST_F(IndexQueue, AnExistingFileKeepsItsMode) {
  std::ofstream(queue_) << "/a\n";
  std::filesystem::permissions(queue_, std::filesystem::perms{0660});
  EXPECT_TRUE(WriteIndexQueue("/b", queue_));
  EXPECT_EQ(Mode(), 0660U);
  EXPECT_EQ(Content(), "/a\n/b\n");
}

TEST_F(IndexQueue, DoesNotQueueALineTwice) {
  std::ofstream(queue_) << "/v/a\n/v/b";
  EXPECT_TRUE(WriteIndexQueue("/v/a", queue_));
  EXPECT_TRUE(WriteIndexQueue("/v/b", queue_));
  EXPECT_EQ(Content(), "/v/a\n/v/b");
}

TEST_F(IndexQueue, OnlyAWholeLineIsADuplicate) {
  std::ofstream(queue_) << "/v/photo/a\n";
  EXPECT_TRUE(WriteIndexQueue("/v/photo", queue_));
  EXPECT_TRUE(WriteIndexQueue("photo/a", queue_));
  EXPECT_EQ(Content(), "/v/photo/a\n/v/photo\nphoto/a\n");
}

TEST_F(IndexQueue, CompletesALastLineWithoutNewline) {
  std::ofstream(queue_) << "/v/cut";
  EXPECT_TRUE(WriteIndexQueue("/v/b", queue_));
  EXPECT_EQ(Content(), "/v/cut\n/v/b\n");
}

TEST_F(IndexQueue, RefusesEmptyTextAndNewlines) {
  EXPECT_FALSE(WriteIndexQueue("/v/a\n/etc", queue_));
  EXPECT_FALSE(WriteIndexQueue("/v/a\n", queue_));
  EXPECT_FALSE(WriteIndexQueue("", queue_));
  EXPECT_FALSE(std::filesystem::exists(queue_));
}

TEST_F(IndexQueue, FailsWhereItCannotWrite) {
  EXPECT_FALSE(WriteIndexQueue("/v", dir_.path() + "/none/queue"));
  EXPECT_FALSE(WriteIndexQueue("/v", dir_.path()));
  ASSERT_EQ(mkfifo(queue_.c_str(), 0600), 0);
  EXPECT_FALSE(WriteIndexQueue("/v", queue_));
}

TEST_F(IndexQueue, ConcurrentWritersLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kLines = 25;
  std::vector<std::thread> writers;
  writers.reserve(kWriters);
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([this, writer] {
      for (int line = 0; line < kLines; ++line) {
        // All of them write every second line.
        const std::string own = line % 2 == 0 ? "all" : std::to_string(writer);
        EXPECT_TRUE(WriteIndexQueue(own + "/" + std::to_string(line), queue_));
      }
    });
  }
  for (std::thread& writer : writers)
    writer.join();
  const std::string content = Content();
  EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 13 + 12 * kWriters);
}

// Another program claims the queue by renaming it while a writer waits for the lock. The line must
// go to the new queue, not to the one whose entries have already been read.
TEST_F(IndexQueue, WritesToTheNewQueueWhenTheOldWasRenamed) {
  std::ofstream(queue_) << "/old\n";
  UniqueFd holder(open(queue_.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
  bool written = false;
  std::thread writer([&] { written = WriteIndexQueue("/new", queue_); });
  // The writer is at the lock as soon as the queue is open twice in this process.
  const auto times_open = [this] {
    int count = 0;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(fd.path(), gone) == queue_) ++count;
    }
    return count;
  };
  while (times_open() < 2)
    std::this_thread::yield();
  std::filesystem::rename(queue_, queue_ + ".tmp");
  holder.reset();
  writer.join();

  EXPECT_TRUE(written);
  EXPECT_EQ(ContentOf(queue_ + ".tmp"), "/old\n");
  EXPECT_EQ(Content(), "/new\n");
}

TEST_F(IndexQueue, RemovesTheRestOfAFailedWrite) {
  std::ofstream(queue_) << "/old\n";
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{.rlim_cur = 8, .rlim_max = before.rlim_max};
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = WriteIndexQueue("/v/photo", queue_);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, old_handler);

  EXPECT_FALSE(written);
  EXPECT_EQ(Content(), "/old\n");
}

}  // namespace
