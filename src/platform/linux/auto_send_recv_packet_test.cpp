#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/index_ipc.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace {

using keldo::UniqueFd;
using keldo::testing::TempDir;
using keldoindexutils::ipc::AutoSendRecvPacket;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

std::string ReadLine(int fd) {
  std::string line;
  char c = 0;
  while (line.empty() || line.back() != '\n') {
    if (::read(fd, &c, 1) != 1) break;
    line += c;
  }
  return line;
}

// The other end may close before all of it is sent.
void Reply(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0) return;
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// A socket that listens, and runs an action for each connection in turn.
class Daemon {
 public:
  using Script = std::function<void(int connection)>;

  explicit Daemon(const std::string& path, int backlog = 8)
      : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_.get(), backlog), 0);
  }
  ~Daemon() {
    ::shutdown(listener_.get(), SHUT_RDWR);  // does not wait for a call that never came
    Join();
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  void Serve(std::vector<Script> scripts) {
    thread_ = std::thread([this, scripts = std::move(scripts)] {
      for (const Script& script : scripts) {
        const UniqueFd connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection.valid()) return;
        script(connection.get());
      }
    });
  }
  // Reads the request, then replies with this text.
  void Answer(const std::string& text) {
    Serve({[this, text](int connection) {
      request = ReadLine(connection);
      Reply(connection, text);
    }});
  }
  void Join() {
    if (thread_.joinable()) thread_.join();
  }

  std::string request;

 private:
  UniqueFd listener_;
  std::thread thread_;
};

class AutoSendRecvPacketTest : public ::testing::Test {
 protected:
  static Json::Value Request(const std::string& path = "/v/a.jpg") {
    Json::Value value;
    value["command"] = "GET_INDEX_VERSION";
    value["path"] = path;
    return value;
  }
  int Send(Json::Value& value, int timeout_seconds = 20) const {
    return AutoSendRecvPacket(socket_.c_str(), -1, value, timeout_seconds);
  }
  // Expects what a failed exchange leaves.
  void ExpectFailure(int timeout_seconds = 20) const {
    Json::Value value = Request();
    EXPECT_LT(Send(value, timeout_seconds), 0);
    EXPECT_EQ(value, Json::Value(Json::objectValue));
  }

  TempDir dir_;
  std::string socket_ = dir_.path() + "/sock";
};

TEST_F(AutoSendRecvPacketTest, TheReplyReplacesTheRequest) {
  Daemon daemon(socket_);
  daemon.Answer("{\"success\":true,\"version\":3}\n");
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
  EXPECT_EQ(value["version"], 3);
  EXPECT_FALSE(value.isMember("command"));
  daemon.Join();
  EXPECT_EQ(daemon.request, "{\"command\":\"GET_INDEX_VERSION\",\"path\":\"/v/a.jpg\"}\n");
}

TEST_F(AutoSendRecvPacketTest, APathOfAnyBytesArrives) {
  Daemon daemon(socket_);
  daemon.Answer("{}\n");
  Json::Value value = Request("/v/\xE4\n\"[1]\".jpg");
  EXPECT_EQ(Send(value), 0);
  daemon.Join();
  EXPECT_EQ(daemon.request,
            "{\"command\":\"GET_INDEX_VERSION\",\"path\":\"/v/\xE4\\n\\\"[1]\\\".jpg\"}\n");
}

TEST_F(AutoSendRecvPacketTest, AReplyMayComeInPiecesAndEndWithTheStream) {
  Daemon daemon(socket_);
  daemon.Serve({[](int connection) {
    ReadLine(connection);
    Reply(connection, "{\"succ");
    std::this_thread::sleep_for(milliseconds(30));
    Reply(connection, "ess\":true}");
  }});
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
  EXPECT_TRUE(value["success"].asBool());
}

TEST_F(AutoSendRecvPacketTest, TheReplyEndsAtItsNewline) {
  Daemon daemon(socket_);
  daemon.Serve({[](int connection) {
    ReadLine(connection);
    Reply(connection, "{\"success\":true}\n");
    EXPECT_EQ(ReadLine(connection), "");  // returns when the other end is closed
  }});
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
}

TEST_F(AutoSendRecvPacketTest, AnythingButOneObjectIsAFailure) {
  const std::vector<std::string> replies = {"",
                                            "\n",
                                            "garbage\n",
                                            "[1]\n",
                                            "{\"a\":1",
                                            "{\"a\":1}{\"b\":2}\n",
                                            "{\"a\":1}\n{\"b\":2}\n",
                                            std::string(100'000, '[') + "\n",
                                            "{\"a\":" + std::string(100'000, '[') + "\n"};
  for (const std::string& reply : replies) {
    std::filesystem::remove(socket_);
    Daemon daemon(socket_);
    daemon.Answer(reply);
    ExpectFailure();
  }
}

TEST_F(AutoSendRecvPacketTest, AReplyMayBeAMebibyteAndNoMore) {
  constexpr std::size_t kMost = 1024UL * 1024;
  for (const std::size_t size : {kMost, 2 * kMost}) {
    std::filesystem::remove(socket_);
    Daemon daemon(socket_);
    std::string reply = "{\"a\":\"\"}\n";
    reply.insert(6, size - reply.size(), 'x');
    daemon.Answer(reply);
    Json::Value value = Request();
    EXPECT_EQ(Send(value) == 0, size == kMost);
  }
}

TEST_F(AutoSendRecvPacketTest, WithoutADaemonItFailsAtOnce) {
  ExpectFailure();  // no socket
  std::ofstream(socket_) << "no socket";
  ExpectFailure();
  std::filesystem::remove(socket_);
  { const Daemon gone(socket_); }
  ASSERT_TRUE(std::filesystem::exists(socket_));
  ExpectFailure();  // nobody listens
  socket_ = dir_.path() + "/" + std::string(200, 'x');
  ExpectFailure();  // too long for a socket
}

TEST_F(AutoSendRecvPacketTest, ADaemonThatClosesWithoutReadingRaisesNoSignal) {
  Daemon daemon(socket_);
  daemon.Serve({[](int /*connection*/) {}});
  Json::Value value = Request(std::string(1'000'000, 'x'));
  EXPECT_LT(Send(value), 0);
  EXPECT_EQ(value, Json::Value(Json::objectValue));
}

TEST_F(AutoSendRecvPacketTest, ALongRequestIsSentWhileTheDaemonReads) {
  Daemon daemon(socket_);
  daemon.Answer("{\"success\":true}\n");
  Json::Value value = Request(std::string(600'000, 'x'));
  EXPECT_EQ(Send(value), 0);
  daemon.Join();
  EXPECT_GT(daemon.request.size(), 600'000U);
}

TEST_F(AutoSendRecvPacketTest, TheWholeExchangeEndsInTime) {
  Daemon daemon(socket_);
  daemon.Serve({[](int connection) {
    ReadLine(connection);
    // A byte now and then, forever: every single wait is short.
    while (::send(connection, " ", 1, MSG_NOSIGNAL) == 1) {
      std::this_thread::sleep_for(milliseconds(100));
    }
  }});
  const auto start = Clock::now();
  ExpectFailure(1);
  EXPECT_GE(Clock::now() - start, milliseconds(990));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
}

TEST_F(AutoSendRecvPacketTest, AWedgedDaemonIsNotAskedAgainUntilItsSocketChanges) {
  {
    const Daemon wedged(socket_);  // listens, never accepts
    ExpectFailure(1);
    const auto start = Clock::now();
    ExpectFailure();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(15));
  }
  std::filesystem::remove(socket_);
  Daemon daemon(socket_);
  daemon.Answer("{\"success\":true}\n");
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
}

TEST_F(AutoSendRecvPacketTest, ADaemonThatFailedIsAskedAgain) {
  Daemon daemon(socket_);
  daemon.Serve({[](int /*connection*/) {},
                [](int connection) {
                  ReadLine(connection);
                  Reply(connection, "{\"success\":true}\n");
                }});
  ExpectFailure();
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
}

TEST_F(AutoSendRecvPacketTest, WaitsWhileTheBacklogIsFull) {
  Daemon daemon(socket_, 0);
  // The kernel queues one more than the backlog says, and refuses the next for the moment.
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socket_.copy(address.sun_path, sizeof address.sun_path - 1);
  std::vector<UniqueFd> waiting;
  while (true) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) break;
    waiting.push_back(std::move(fd));
  }
  ASSERT_EQ(errno, EAGAIN);
  std::vector<Daemon::Script> scripts(waiting.size(), [](int /*connection*/) {});
  scripts.front() = [](int /*connection*/) { std::this_thread::sleep_for(milliseconds(100)); };
  scripts.emplace_back([](int connection) {
    ReadLine(connection);
    Reply(connection, "{\"success\":true}\n");
  });
  daemon.Serve(std::move(scripts));
  Json::Value value = Request();
  EXPECT_EQ(Send(value), 0);
}

// Only root can listen as somebody else.
TEST_F(AutoSendRecvPacketTest, RefusesASocketOfAnotherUser) {
  if (geteuid() != 0) {
    Daemon own(socket_);
    own.Answer("{}\n");
    Json::Value value = Request();
    EXPECT_EQ(Send(value), 0);
    return;
  }
  std::filesystem::permissions(dir_.path(), std::filesystem::perms{0777});
  ASSERT_EQ(seteuid(65534), 0);
  Daemon daemon(socket_);
  ASSERT_EQ(seteuid(0), 0);
  daemon.Serve({[&daemon](int connection) { daemon.request = ReadLine(connection); }});
  ExpectFailure();
  daemon.Join();
  EXPECT_EQ(daemon.request, "");  // it never saw the request
}

TEST_F(AutoSendRecvPacketTest, ADaemonOfRootIsTrustedByAll) {
  std::filesystem::permissions(dir_.path(), std::filesystem::perms{0777});
  Daemon daemon(socket_);
  std::filesystem::permissions(socket_, std::filesystem::perms{0777});
  daemon.Answer("{\"success\":true}\n");
  const bool was_root = geteuid() == 0;
  ASSERT_EQ(was_root ? seteuid(65534) : 0, 0);
  Json::Value value = Request();
  const int result = Send(value);
  ASSERT_EQ(was_root ? seteuid(0) : 0, 0);
  EXPECT_EQ(result, 0);
}

}  // namespace
