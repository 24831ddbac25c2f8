// The real daemon as a process, and the requests of the real client.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "index/index_database.h"
#include "platform/index_ipc.h"
#include "plugind/daemon_test_support.h"

namespace keldo::plugind {
namespace {

using index::IndexDatabase;
using keldoindexutils::MediaInfo;
using keldoindexutils::ipc::AutoSendRecvPacket;

const std::string kAskPhoto = R"({"command":"IS_CONVERT_PHOTO"})";
const std::string kYes = R"({"result":true,"success":true})";
const std::string kNo = R"({"success":false})";
const std::string kClosed = "(closed)";
const std::string kOddPath = "/v/a b\xFF\n'%s\".jpg";

class PluginDaemonTest : public ::testing::Test {
 protected:
  // The reply to a request of the client that keldothumb uses.
  Json::Value Ask(const std::string& command, const std::string& path = {}) {
    Json::Value packet(Json::objectValue);
    packet["command"] = command;
    if (!path.empty()) packet["path"] = path;
    if (command == "GET_MEDIA_FROM_PLUGIN_DB") packet["type"] = 1;
    EXPECT_EQ(AutoSendRecvPacket(daemon_.socket().c_str(), -1, packet, 10), 0) << command;
    return packet;
  }

  std::unique_ptr<IndexDatabase> Database() {
    IndexDatabase::OpenResult opened = IndexDatabase::Open(daemon_.database());
    if (!opened.database) throw std::runtime_error(opened.problem);
    return std::move(opened.database);
  }

  std::vector<std::unique_ptr<Client>> Connect(std::size_t count) {
    std::vector<std::unique_ptr<Client>> clients;
    for (std::size_t i = 0; i < count; ++i) {
      clients.push_back(std::make_unique<Client>(daemon_.socket()));
    }
    return clients;
  }

  static std::string ManyRequests() {
    std::string requests;
    for (int i = 0; i < 500; ++i)
      requests += kAskPhoto + "\n";
    return requests;
  }

  // The daemon is alive and answers.
  void ExpectServing() {
    Client client(daemon_.socket());
    client.Send(kAskPhoto + "\n");
    EXPECT_EQ(client.Line(), kYes);
  }

  DaemonProcess daemon_;
};

TEST_F(PluginDaemonTest, VersionsComeFromTheIndex) {
  daemon_.Start();
  EXPECT_EQ(Ask("GET_INDEX_VERSION", kOddPath)["version"], 0);
  ASSERT_TRUE(Database()->SetVersion(kOddPath, 5));
  EXPECT_EQ(Ask("GET_INDEX_VERSION", kOddPath)["version"], 5);
  EXPECT_EQ(Ask("GET_INDEX_VERSION", kOddPath)["success"], true);
}

TEST_F(PluginDaemonTest, FinishedFilesAreRecordedAndTheirVersionStays) {
  daemon_.Start();
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(Ask("POST_PHOTO_CONVERT", kOddPath)["success"], true);
  EXPECT_EQ(Ask("POST_VIDEO_CONVERT", "/v//x/../b.mp4")["success"], true);
  const auto database = Database();
  for (const std::string& path : {kOddPath, std::string("/v/b.mp4")}) {
    std::optional<std::int64_t> time;
    ASSERT_TRUE(database->FindFinished(path, time));
    ASSERT_TRUE(time) << path;
    EXPECT_GE(*time, before);
    EXPECT_LE(*time, std::time(nullptr));
    EXPECT_EQ(Ask("GET_INDEX_VERSION", path)["version"], 0);
  }
}

TEST_F(PluginDaemonTest, ConversionIsOnUntilItIsSwitchedOff) {
  daemon_.Start();
  EXPECT_EQ(Ask("IS_CONVERT_PHOTO")["result"], true);
  EXPECT_EQ(Ask("IS_CONVERT_VIDEO")["result"], true);
  ASSERT_TRUE(Database()->SetConversion(THUMB_TYPE_VIDEO, false));
  EXPECT_EQ(Ask("IS_CONVERT_PHOTO")["result"], true);
  EXPECT_EQ(Ask("IS_CONVERT_VIDEO")["result"], false);
}

TEST_F(PluginDaemonTest, MediaRecordsComeFromTheIndex) {
  daemon_.Start();
  EXPECT_EQ(Ask("GET_MEDIA_FROM_PLUGIN_DB", kOddPath)["success"], false);
  ASSERT_TRUE(Database()->SetMedia(
      {.path = kOddPath, .width = 1920, .height = 1080, .bit_rate = 4500000, .database = 1}));
  const Json::Value reply = Ask("GET_MEDIA_FROM_PLUGIN_DB", kOddPath);
  EXPECT_EQ(reply["success"], true);
  MediaInfo media;
  media.SetByJson(reply["media"]);
  EXPECT_EQ(media.path(), kOddPath);
  EXPECT_EQ(media.resolution_x(), 1920);
  EXPECT_EQ(media.resolution_y(), 1080);
  EXPECT_EQ(media.frame_bitrate(), 4500000);
}

TEST_F(PluginDaemonTest, ManyRequestsOfOneConnectionAreAnsweredInOrder) {
  daemon_.Start();
  constexpr int kRequests = 3000;
  std::string requests;
  for (int i = 0; i < kRequests; ++i) {
    requests += i % 3 == 0 ? kAskPhoto + "\n" : i % 3 == 1 ? "rubbish\n" : "\n";
  }
  Client client(daemon_.socket());
  ASSERT_TRUE(client.Send(requests));
  for (int i = 0; i < kRequests; ++i)
    ASSERT_EQ(client.Line(), i % 3 == 0 ? kYes : kNo) << i;
}

TEST_F(PluginDaemonTest, TheLastRequestMayEndWithTheStream) {
  daemon_.Start();
  Client client(daemon_.socket());
  client.Send(kAskPhoto + "\n" + kAskPhoto);
  client.EndSending();
  EXPECT_EQ(client.Line(), kYes);
  EXPECT_EQ(client.Line(), kYes);
  EXPECT_EQ(client.Line(), kClosed);
}

TEST_F(PluginDaemonTest, ServesClientsThatSendByteByByte) {
  daemon_.Start();
  auto clients = Connect(20);
  const std::string request = kAskPhoto + "\n";
  for (int round = 0; round < 3; ++round) {
    for (const char c : request) {
      for (const auto& client : clients)
        ASSERT_TRUE(client->Send({&c, 1}));
    }
    for (const auto& client : clients)
      EXPECT_EQ(client->Line(), kYes);
  }
}

TEST_F(PluginDaemonTest, LogsEachInvalidRequestThatItRefuses) {
  daemon_.Start();
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != '\n') bytes += static_cast<char>(byte);
  }
  Client client(daemon_.socket());
  const std::vector<std::string> rubbish = {bytes, "[1,2]",
                                            "{\"command\":", std::string(60000, '[')};
  for (const std::string& line : rubbish) {
    client.Send(line + "\n");
    EXPECT_EQ(client.Line(), kNo);
  }
  client.Send(kAskPhoto + "\n");
  EXPECT_EQ(client.Line(), kYes);
  EXPECT_EQ(daemon_.Logged("refused a request of process " + std::to_string(::getpid()) +
                           ": it is no JSON object\n"),
            static_cast<int>(rubbish.size()));
}

TEST_F(PluginDaemonTest, AnOversizedRequestIsRefusedAndTheNextOneAnswered) {
  daemon_.Start();
  Client client(daemon_.socket());
  ASSERT_TRUE(client.Send(std::string(1000000, 'x')));
  EXPECT_EQ(client.Line(), kNo);
  client.Send("\n" + kAskPhoto + "\n");
  EXPECT_EQ(client.Line(), kYes);
  EXPECT_EQ(daemon_.Logged(": it is longer than 65536 bytes\n"), 1);
}

TEST_F(PluginDaemonTest, AClientThatLeavesMidRequestDoesNoHarm) {
  daemon_.Start();
  for (int i = 0; i < 20; ++i) {
    Client client(daemon_.socket());
    client.Send(R"({"command":"IS_CONV)");
  }
  ExpectServing();
}

TEST_F(PluginDaemonTest, RecordsWhatAClientSentBeforeItLeft) {
  daemon_.Start();
  {
    Client client(daemon_.socket());
    client.Send(R"({"command":"POST_PHOTO_CONVERT","path":"/v/left.jpg"})");
    client.Send("\n");
  }
  ExpectServing();
  std::optional<std::int64_t> time;
  ASSERT_TRUE(Database()->FindFinished("/v/left.jpg", time));
  EXPECT_TRUE(time);
}

TEST_F(PluginDaemonTest, RejectsClientsBeyondTheLimit) {
  daemon_.Start();
  // Once the first is answered, the connection that probed the daemon is closed.
  auto clients = Connect(1);
  clients[0]->Send(kAskPhoto + "\n");
  ASSERT_EQ(clients[0]->Line(), kYes);
  for (auto& client : Connect(199))
    clients.push_back(std::move(client));
  std::size_t served = 0;
  for (const auto& client : clients) {
    const bool sent = client->Send(kAskPhoto + "\n");
    const std::string line = sent ? client->Line() : kClosed;
    if (line == kYes) ++served;
    EXPECT_TRUE(line == kYes || line == kClosed) << line;
  }
  EXPECT_EQ(served, 64U);
  EXPECT_EQ(daemon_.Logged("turning clients away: 64 are connected\n"), 1);

  clients.clear();
  for (int i = 0; i < 200; ++i)
    ExpectServing();
}

TEST_F(PluginDaemonTest, ClientsWaitWhileDescriptorsAreShort) {
  daemon_.Start();
  ExpectServing();
  constexpr rlimit kFew{.rlim_cur = 20, .rlim_max = 20};
  ASSERT_EQ(::prlimit(daemon_.pid(), RLIMIT_NOFILE, &kFew, nullptr), 0);
  auto clients = Connect(40);
  for (const auto& client : clients)
    client->Send(kAskPhoto + "\n");
  // Clients that wait do not keep waking it.
  EXPECT_EQ(clients[0]->Line(), kYes);
  for (int i = 0; i < 200; ++i) {
    clients[0]->Send(kAskPhoto + "\n");
    ASSERT_EQ(clients[0]->Line(), kYes);
  }
  clients[0]->Send(kAskPhoto + "\n");
  // A served client makes room for them.
  for (auto& client : clients) {
    EXPECT_EQ(client->Line(), kYes);
    client.reset();
  }
  const int logged = daemon_.Logged("cannot accept a client: Too many open files\n");
  EXPECT_GE(logged, 1);
  EXPECT_LT(logged, 15);
}

TEST_F(PluginDaemonTest, ASilentClientIsDroppedAndABusyOneIsNot) {
  daemon_.Start({"--idle-timeout", "1"});
  Client silent(daemon_.socket());
  Client half(daemon_.socket());
  half.Send("{");
  Client busy(daemon_.socket());
  const auto begin = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(1300)) {
    busy.Send(kAskPhoto + "\n");
    ASSERT_EQ(busy.Line(), kYes);
    half.Send(" ");
  }
  EXPECT_EQ(silent.Line(), kClosed);
  EXPECT_EQ(half.Line(), kClosed);
  EXPECT_EQ(daemon_.Logged("sends no whole request\n"), 2);
}

TEST_F(PluginDaemonTest, AClientThatDoesNotReadIsDropped) {
  daemon_.Start({"--idle-timeout", "1"});
  Client client(daemon_.socket());
  const std::string requests = ManyRequests();
  std::size_t sent = 0;
  pollfd polled{.fd = client.fd(), .events = POLLOUT, .revents = 0};
  // Fills all buffers, then waits until the daemon closes.
  while (::poll(&polled, 1, 10000) == 1) {
    const ssize_t count =
        ::send(client.fd(), requests.data(), requests.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) break;
    sent += static_cast<std::size_t>(count);
    ASSERT_LT(sent, 10000000U);
  }
  EXPECT_NE(polled.revents & POLLHUP, 0);
  ExpectServing();
  EXPECT_EQ(daemon_.Logged("does not read its replies\n"), 1);
}

TEST_F(PluginDaemonTest, ASecondDaemonIsRefused) {
  daemon_.Start();
  struct stat before {};
  ASSERT_EQ(::lstat(daemon_.socket().c_str(), &before), 0);
  DaemonProcess second;
  EXPECT_EQ(second.Run({"--socket", daemon_.socket()}), 1);
  EXPECT_EQ(second.Logged("another daemon is listening on " + daemon_.socket()), 1);
  EXPECT_EQ(second.Run({"--clean-up", "--socket", daemon_.socket()}), 1);
  struct stat after {};
  ASSERT_EQ(::lstat(daemon_.socket().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  ExpectServing();
}

TEST_F(PluginDaemonTest, ReplacesAKilledDaemonsSocket) {
  daemon_.Start();
  ASSERT_TRUE(Database()->SetVersion("/v/a.jpg", 2));
  for (int i = 0; i < 3; ++i) {
    daemon_.Signal(SIGKILL);
    ASSERT_EQ(daemon_.Wait(), -SIGKILL);
    ASSERT_TRUE(std::filesystem::is_socket(daemon_.socket()));
    daemon_.Start();
    EXPECT_EQ(Ask("GET_INDEX_VERSION", "/v/a.jpg")["version"], 2);
  }
}

TEST_F(PluginDaemonTest, CleaningUpRemovesAKilledDaemonsSocket) {
  EXPECT_EQ(daemon_.Run({"--clean-up"}), 0);
  daemon_.Start();
  daemon_.Signal(SIGKILL);
  ASSERT_EQ(daemon_.Wait(), -SIGKILL);
  EXPECT_EQ(daemon_.Run({"--clean-up"}), 0);
  EXPECT_FALSE(std::filesystem::exists(daemon_.socket()));
}

TEST_F(PluginDaemonTest, StopSignalsEndItCleanlyWhileClientsWait) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    daemon_.Start();
    Client silent(daemon_.socket());
    Client half(daemon_.socket());
    half.Send("{\"command\":");
    daemon_.Signal(signal);
    EXPECT_EQ(daemon_.Wait(), 0) << signal;
    EXPECT_FALSE(std::filesystem::exists(daemon_.socket()));
    EXPECT_EQ(silent.Line(), kClosed);
    EXPECT_EQ(half.Line(), kClosed);
  }
}

TEST_F(PluginDaemonTest, AnswersWhatItReceivedBeforeTheStop) {
  daemon_.Start();
  // While stopped, it receives nothing; when continued, it gets everything at once with the signal.
  daemon_.Signal(SIGSTOP);
  auto clients = Connect(30);
  const std::string request = R"({"command":"POST_PHOTO_CONVERT","path":"/v/)";
  for (std::size_t i = 0; i < clients.size(); ++i) {
    ASSERT_TRUE(clients[i]->Send(request + std::to_string(i) + "\"}\n" + kAskPhoto + "\n{"));
  }
  daemon_.Signal(SIGTERM);
  daemon_.Signal(SIGCONT);
  for (const auto& client : clients) {
    EXPECT_EQ(client->Line(), R"({"success":true})");
    EXPECT_EQ(client->Line(), kYes);
    EXPECT_EQ(client->Line(), kClosed);
  }
  EXPECT_EQ(daemon_.Wait(), 0);
}

TEST_F(PluginDaemonTest, AStopDoesNotWaitForAClientThatDoesNotRead) {
  daemon_.Start();
  Client client(daemon_.socket());
  const std::string requests = ManyRequests();
  pollfd polled{.fd = client.fd(), .events = POLLOUT, .revents = 0};
  while (::poll(&polled, 1, 300) == 1) {
    ASSERT_GT(::send(client.fd(), requests.data(), requests.size(), MSG_NOSIGNAL | MSG_DONTWAIT),
              0);
  }
  daemon_.Signal(SIGTERM);
  EXPECT_EQ(daemon_.Wait(), 0);
}

TEST_F(PluginDaemonTest, SocketAndDatabaseHaveTheRightModes) {
  const mode_t before = ::umask(0);
  daemon_.Start();
  ::umask(before);
  const auto mode = [](const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  };
  EXPECT_EQ(mode(daemon_.socket()), 0600U);
  EXPECT_EQ(mode(daemon_.database()), 0644U);
  EXPECT_EQ(mode(daemon_.dir() + "/index"), 0755U);
}

TEST_F(PluginDaemonTest, WithoutADatabaseTheDefaultsAreAnswered) {
  std::ofstream(daemon_.dir() + "/index") << "no directory";
  daemon_.Start();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Ask("GET_INDEX_VERSION", "/v/a.jpg")["version"], 0);
    EXPECT_EQ(Ask("IS_CONVERT_VIDEO")["result"], true);
    EXPECT_EQ(Ask("GET_MEDIA_FROM_PLUGIN_DB", "/v/a.jpg")["success"], false);
    EXPECT_EQ(Ask("POST_PHOTO_CONVERT", "/v/a.jpg")["success"], false);
  }
  EXPECT_EQ(daemon_.Logged("cannot open the index"), 1);
}

TEST_F(PluginDaemonTest, StopsCleanlyWhileTheIndexIsBusy) {
  daemon_.Start();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(daemon_.database().c_str(), &raw), SQLITE_OK);
  const index::UniqueSqlite lock(raw);
  ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  Client client(daemon_.socket());
  client.Send(R"({"command":"POST_PHOTO_CONVERT","path":"/v/a.jpg"})");
  client.Send("\n");
  daemon_.Signal(SIGTERM);
  EXPECT_EQ(client.Line(), kNo);
  EXPECT_EQ(daemon_.Wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(daemon_.socket()));
  EXPECT_EQ(daemon_.Logged("cannot write to the index: database is locked"), 1);
}

TEST_F(PluginDaemonTest, TheCommandLineIsChecked) {
  EXPECT_EQ(daemon_.Run({"--help"}), 0);
  EXPECT_NE(daemon_.Log().find("--idle-timeout"), std::string::npos);
  EXPECT_EQ(daemon_.Run({"--version"}), 0);
  EXPECT_NE(daemon_.Log().find("keldoindexplugind "), std::string::npos);
  EXPECT_EQ(daemon_.Run({"--nonsense"}), 2);
  EXPECT_EQ(daemon_.Run({"argument"}), 2);
  EXPECT_EQ(daemon_.Run({"--idle-timeout", "0"}), 2);
  EXPECT_EQ(daemon_.Run({"--max-clients", "x"}), 2);
  EXPECT_EQ(daemon_.Run({"--socket", ""}), 1);
  EXPECT_EQ(daemon_.Run({"--socket", "/" + std::string(200, 'x')}), 1);
}

}  // namespace
}  // namespace keldo::plugind
