#include "thumbs/work_queue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;
using WorkQueueTest = testing::CoreTest;

constexpr const char* kQueue = paths::kThumbQueue;
constexpr const char* kTwin = paths::kThumbQueueInWork;

std::string DirectoryOf(std::string_view line) {
  return ParseQueueLine(line).PathUpToColon().value_or("none");
}

// ---- A line ----

TEST_F(WorkQueueTest, ALineIsAPathOrATree) {
  const QueueEntry path = ParseQueueLine("/v/a:b %s\xff");
  EXPECT_FALSE(path.is_tree);
  EXPECT_EQ(path.path, "/v/a:b %s\xff");
  const QueueEntry tree = ParseQueueLine("R:/v/a:b");
  EXPECT_TRUE(tree.is_tree);
  EXPECT_EQ(tree.path, "/v/a:b");
}

TEST_F(WorkQueueTest, OnlyACapitalRAndAColonMakeATree) {
  for (const char* line : {"", "R", "r:/v", "R/v", ":R:/v", "/R:v"}) {
    const QueueEntry entry = ParseQueueLine(line);
    EXPECT_FALSE(entry.is_tree) << line;
    EXPECT_EQ(entry.path, line);
  }
}

TEST_F(WorkQueueTest, TheDirectoryOfATreeEndsAtTheNextColon) {
  EXPECT_EQ(DirectoryOf("R:/volume1/photo"), "/volume1/photo");
  EXPECT_EQ(DirectoryOf("R:/a:b"), "/a");
  EXPECT_EQ(DirectoryOf("R:/a:b:c"), "/a");
  EXPECT_EQ(DirectoryOf("R:/a:"), "/a");
  EXPECT_EQ(DirectoryOf("R::/a"), "/a");
  EXPECT_EQ(DirectoryOf("R:a b\n"), "a b\n");
  EXPECT_EQ(DirectoryOf("R:"), "none");
  EXPECT_EQ(DirectoryOf("R:::"), "none");
}

// ---- A file ----

TEST_F(WorkQueueTest, AMissingQueueHoldsNothing) {
  EXPECT_FALSE(IsQueueLine("/v/a", kQueue));
  EXPECT_FALSE(IsInQueue("/v/a", kQueue, kTwin));
  ExpectNoLog();
}

TEST_F(WorkQueueTest, AWholeLineIsFound) {
  fake().WriteLines(kQueue, {"/v/b", "/v/a %s[1]\xff", "/v/c"});
  EXPECT_TRUE(IsQueueLine("/v/a %s[1]\xff", kQueue));
  EXPECT_EQ(fake().calls,
            (Texts{"KLIBCFileGetLine(/var/spool/thumb_create.queue, /v/a %s[1]\xff, 4096, 1028)"}));
  EXPECT_FALSE(IsQueueLine("/v", kQueue));
  EXPECT_FALSE(IsQueueLine("/v/b/", kQueue));
}

TEST_F(WorkQueueTest, ALineThatOnlyBeginsWithThePathDoesNotCount) {
  fake().get_line_finds_longer_lines = true;
  fake().WriteLines(kQueue, {"/v/album"});
  EXPECT_FALSE(IsQueueLine("/v/a", kQueue));
  EXPECT_TRUE(IsQueueLine("/v/album", kQueue));
}

TEST_F(WorkQueueTest, WhatIsInWorkIsQueued) {
  fake().WriteLines(kTwin, {"/v/a"});
  EXPECT_TRUE(IsInQueue("/v/a", kQueue, kTwin));
  EXPECT_EQ(fake().calls,
            (Texts{"KLIBCFileGetLine(/var/spool/thumb_create.queue.tmp, /v/a, 4096, 1028)"}));
}

TEST_F(WorkQueueTest, TheQueueIsLookedAtAfterItsTwin) {
  fake().WriteLines(kTwin, {"/v/b"});
  fake().WriteLines(kQueue, {"/v/a"});
  EXPECT_TRUE(IsInQueue("/v/a", kQueue, kTwin));
  EXPECT_EQ(fake().calls,
            (Texts{"KLIBCFileGetLine(/var/spool/thumb_create.queue.tmp, /v/a, 4096, 1028)",
                   "access(/var/spool/thumb_create.queue, " + std::to_string(R_OK) + ")",
                   "KLIBCFileGetLine(/var/spool/thumb_create.queue, /v/a, 4096, 1028)"}));
}

TEST_F(WorkQueueTest, AQueueThatCannotBeReadIsNotLookedAt) {
  fake().WriteLines(kQueue, {"/v/a"});
  fake().FailAlways("access", EACCES);
  EXPECT_FALSE(IsInQueue("/v/a", kQueue, kTwin));
  EXPECT_EQ(fake().CallsOf({"KLIBCFileGetLine"}).size(), 1u);
}

}  // namespace
}  // namespace keldo
