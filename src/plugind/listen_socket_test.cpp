#include "plugind/listen_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace keldo::plugind {
namespace {

constexpr uid_t kSomebody = 1000;
constexpr uid_t kOther = 1001;

TEST(IsUserServed, ServesOnlyRootAndItsOwnUser) {
  static_assert(IsUserServed(0, 0));
  static_assert(IsUserServed(0, kSomebody));
  static_assert(IsUserServed(kSomebody, kSomebody));
  static_assert(!IsUserServed(kSomebody, 0));
  static_assert(!IsUserServed(kOther, kSomebody));
  static_assert(!IsUserServed(static_cast<uid_t>(-1), 0));
}

class ListenSocketTest : public ::testing::Test {
 protected:
  // A socket whose daemon was killed.
  void LeaveSocketBehind() {
    const UniqueFd socket = Bind(path_);
    ASSERT_TRUE(socket.valid());
    ASSERT_EQ(::listen(socket.get(), 1), 0);
  }
  static UniqueFd Bind(const std::string& path, int type = SOCK_STREAM) {
    const sockaddr_un address = Address(path);
    UniqueFd fd(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      fd.reset();
    }
    return fd;
  }
  bool CanConnect() const {
    const sockaddr_un address = Address(path_);
    const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  // Expects opening to fail with this reason and to leave the file.
  void ExpectRefused(const std::string& problem) {
    struct stat before {};
    ASSERT_EQ(::lstat(path_.c_str(), &before), 0);
    const ListenSocket::OpenResult opened = ListenSocket::Open(path_);
    EXPECT_FALSE(opened.socket);
    EXPECT_EQ(opened.problem, problem);
    EXPECT_EQ(RemoveStaleSocket(path_), problem);
    struct stat after {};
    ASSERT_EQ(::lstat(path_.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
  }

  testing::TempDir dir_;
  std::string path_ = dir_.path() + "/sock";

 private:
  static sockaddr_un Address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
  }
};

TEST_F(ListenSocketTest, ListensForItsUserOnlyAndRemovesItsFile) {
  const mode_t before = ::umask(0);
  ListenSocket::OpenResult opened = ListenSocket::Open(path_);
  EXPECT_EQ(::umask(before), 0U);
  ASSERT_TRUE(opened.socket) << opened.problem;
  struct stat status {};
  ASSERT_EQ(::lstat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFSOCK | 0600U);
  EXPECT_TRUE(CanConnect());
  opened.socket.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

TEST_F(ListenSocketTest, ASocketThatWasLeftBehindIsReplaced) {
  LeaveSocketBehind();
  ASSERT_FALSE(CanConnect());
  const ListenSocket::OpenResult opened = ListenSocket::Open(path_);
  ASSERT_TRUE(opened.socket) << opened.problem;
  EXPECT_TRUE(CanConnect());
}

TEST_F(ListenSocketTest, ASocketThatWasLeftBehindIsRemoved) {
  LeaveSocketBehind();
  EXPECT_EQ(RemoveStaleSocket(path_), "");
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(RemoveStaleSocket(path_), "");
}

TEST_F(ListenSocketTest, ASocketInUseIsLeftAlone) {
  const ListenSocket::OpenResult first = ListenSocket::Open(path_);
  ASSERT_TRUE(first.socket);
  ExpectRefused("another daemon is listening on " + path_);
  EXPECT_TRUE(CanConnect());
}

TEST_F(ListenSocketTest, ASocketWithAFullQueueIsInUse) {
  const UniqueFd busy = Bind(path_);
  ASSERT_EQ(::listen(busy.get(), 0), 0);
  ASSERT_TRUE(CanConnect());
  ExpectRefused("another daemon is listening on " + path_);
  ExpectRefused("another daemon is listening on " + path_);
}

TEST_F(ListenSocketTest, ASocketOfAnotherKindIsLeftAlone) {
  const UniqueFd other = Bind(path_, SOCK_DGRAM);
  ASSERT_TRUE(other.valid());
  ExpectRefused("cannot tell whether " + path_ + " is in use: Protocol wrong type for socket");
}

TEST_F(ListenSocketTest, LeavesAFileThatIsNotASocketAlone) {
  std::ofstream(path_) << "precious";
  ExpectRefused(path_ + " exists and is no socket");
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  ExpectRefused(path_ + " exists and is no socket");
}

TEST_F(ListenSocketTest, SymbolicLinksAreNotFollowed) {
  const std::string target = dir_.path() + "/target";
  std::filesystem::create_symlink(target, path_);
  ExpectRefused(path_ + " exists and is no socket");
  EXPECT_FALSE(std::filesystem::exists(target));
  { ASSERT_TRUE(Bind(target).valid()); }
  ExpectRefused(path_ + " exists and is no socket");
  EXPECT_TRUE(std::filesystem::exists(target));
}

TEST_F(ListenSocketTest, AnotherUsersSocketIsLeftAlone) {
  // Only root can change a file's owner; an ordinary user tries one of root's files.
  if (::geteuid() == 0) {
    LeaveSocketBehind();
    ASSERT_EQ(::lchown(path_.c_str(), kOther, kOther), 0);
    ExpectRefused(path_ + " belongs to user " + std::to_string(kOther));
  } else {
    EXPECT_FALSE(IsUserServed(kOther == ::geteuid() ? kSomebody : kOther, ::geteuid()));
  }
}

TEST_F(ListenSocketTest, LeavesAFileThatReplacedItsOwn) {
  ListenSocket::OpenResult opened = ListenSocket::Open(path_);
  ASSERT_TRUE(opened.socket);
  std::filesystem::remove(path_);
  std::ofstream(path_) << "somebody else's";
  opened.socket.reset();
  EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(ListenSocketTest, RefusesPathsThatCannotBeASocket) {
  EXPECT_EQ(ListenSocket::Open("").problem, "the socket's path is empty or too long");
  EXPECT_EQ(ListenSocket::Open("/" + std::string(107, 'x')).problem,
            "the socket's path is empty or too long");
  EXPECT_EQ(
      ListenSocket::Open(dir_.path() + "/none/sock").problem,
      "cannot lock the directory of " + dir_.path() + "/none/sock: No such file or directory");
}

TEST_F(ListenSocketTest, FailsWhileAnotherDaemonLocksTheDirectory) {
  LeaveSocketBehind();
  const UniqueFd other(::open(dir_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  EXPECT_EQ(ListenSocket::Open(path_).problem,
            "cannot lock the directory of " + path_ + ": Resource temporarily unavailable");
  EXPECT_TRUE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace keldo::plugind
