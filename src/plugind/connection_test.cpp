#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "plugind/server.h"

namespace keldo::plugind {
namespace {

// A connection over a pair of sockets that answers every request alike.
class ConnectionTest : public ::testing::Test {
 protected:
  ConnectionTest() {
    std::array<int, 2> pair{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) != 0) {
      throw std::runtime_error("socketpair");
    }
    client_.reset(pair[0]);
    connection_.emplace(UniqueFd(pair[1]), 1, start_);
  }

  void Send(const std::string& bytes) const {
    ASSERT_EQ(::send(client_.get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
  }
  // Reads everything that was sent to the client, and counts the replies.
  std::size_t TakeReplies() const {
    std::size_t replies = 0;
    std::array<char, 4096> block{};
    for (ssize_t got = 0; (got = ::recv(client_.get(), block.data(), block.size(), 0)) > 0;) {
      replies += static_cast<std::size_t>(std::count(block.data(), block.data() + got, '\n'));
    }
    return replies;
  }
  bool Serve(int seconds = 0) { return connection_->Serve(answerer_, After(seconds)); }
  Clock::time_point After(int seconds) const { return start_ + std::chrono::seconds(seconds); }

  Clock::time_point start_ = Clock::now();
  UniqueFd client_;
  std::optional<Connection> connection_;
  std::size_t asked_ = 0;
  Answerer answerer_ = [this](std::string_view /*text*/) {
    ++asked_;
    return Answer{.reply = std::string(99, 'x'), .problem = {}};
  };
};

TEST_F(ConnectionTest, AnswersAllRequestsThatArriveTogether) {
  // Their replies fit only into the socket's buffer, not into the connection's.
  constexpr std::size_t kRequests = 1500;
  Send(std::string(kRequests, '\n'));
  EXPECT_TRUE(Serve());
  EXPECT_EQ(asked_, kRequests);
  EXPECT_FALSE(connection_->wants_to_write());
  EXPECT_TRUE(connection_->wants_to_read());
  EXPECT_EQ(TakeReplies(), kRequests);
}

TEST_F(ConnectionTest, StopsReadingFromAClientThatDoesNotRead) {
  constexpr std::size_t kRequests = 10000;
  Send(std::string(kRequests, '\n'));
  EXPECT_TRUE(Serve());
  const std::size_t asked = asked_;
  EXPECT_LT(asked, kRequests);
  EXPECT_TRUE(connection_->wants_to_write());
  EXPECT_FALSE(connection_->wants_to_read());
  EXPECT_TRUE(Serve());
  EXPECT_EQ(asked_, asked);

  std::size_t replies = TakeReplies();
  while (connection_->wants_to_write()) {
    ASSERT_TRUE(Serve());
    replies += TakeReplies();
  }
  EXPECT_EQ(replies, kRequests);
  EXPECT_TRUE(connection_->wants_to_read());
}

TEST_F(ConnectionTest, OnlyWholeRequestsAndReadRepliesAreProgress) {
  Send("half");
  EXPECT_TRUE(Serve(1));
  EXPECT_EQ(connection_->last_progress(), After(0));
  Send("\n");
  EXPECT_TRUE(Serve(2));
  EXPECT_EQ(connection_->last_progress(), After(2));
  Send(std::string(10000, '\n'));
  EXPECT_TRUE(Serve(3));
  EXPECT_TRUE(Serve(4));
  EXPECT_EQ(connection_->last_progress(), After(3));
}

TEST_F(ConnectionTest, EndsWhenEverythingIsAnswered) {
  Send("one\ntwo");
  ::shutdown(client_.get(), SHUT_WR);
  EXPECT_TRUE(Serve());
  EXPECT_EQ(asked_, 1U);
  EXPECT_FALSE(Serve());
  EXPECT_EQ(asked_, 2U);
  EXPECT_EQ(TakeReplies(), 2U);
}

TEST_F(ConnectionTest, AtTheEndAnswersWholeRequestsOnly) {
  constexpr std::size_t kRequests = 300;
  std::string requests;
  for (std::size_t i = 0; i < kRequests; ++i)
    requests += std::string(200, 'r') + "\n";
  Send(requests + "half");
  EXPECT_FALSE(connection_->ServeLast(answerer_, start_));
  EXPECT_EQ(asked_, kRequests);
  EXPECT_EQ(TakeReplies(), kRequests);
}

}  // namespace
}  // namespace keldo::plugind
