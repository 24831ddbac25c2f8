#include "convert/sandbox/sandbox.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "convert/sandbox/sandbox_test_support.h"
#include "support/file_test.h"
#include "util/handles.h"

namespace {

using keldo::UniqueFd;
using keldo::convert::ApplyLandlock;
using keldo::convert::ApplySeccomp;
using keldo::convert::CloseOtherDescriptors;
using keldo::convert::EnterSandbox;
using keldo::convert::SandboxGaps;
using keldo::convert::SandboxParts;
using keldo::testing::ErrorOf;
using keldo::testing::InChild;
using keldo::testing::kNotStopped;

// How a child ends that is confined by the system call filter alone.
int Filtered(const std::function<int()>& work) {
  return InChild([&] { return ApplySeccomp() ? work() : kNotStopped; });
}

// The same by Landlock alone.
int Landlocked(const std::function<int()>& work) {
  return InChild([&] { return ApplyLandlock() ? work() : kNotStopped; });
}

// The same by everything that confines a worker.
int Confined(const std::function<int()>& work, SandboxParts parts = {true, true}) {
  return InChild([&] {
    const SandboxGaps gaps = EnterSandbox({}, parts);
    return gaps.landlock || gaps.seccomp ? kNotStopped : work();
  });
}

class SandboxTest : public keldo::testing::FileTest {
 protected:
};

// A socket that somebody listens on.
class Listener {
 public:
  Listener() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address_);
    if (bind(fd_.get(), Address(), size) != 0 || listen(fd_.get(), 5) != 0 ||
        getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address_), &size) != 0) {
      throw std::runtime_error("no socket to connect to");
    }
  }
  const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&address_); }
  int Connect(int fd) const { return ErrorOf(connect(fd, Address(), sizeof(address_))); }

 private:
  UniqueFd fd_;
  sockaddr_in address_{};
};

TEST_F(SandboxTest, NoOtherFileIsOpened) {
  const std::string secret = Write("secret", "secret");
  const auto open_it = [&] { return ErrorOf(open(secret.c_str(), O_RDONLY)); };
  EXPECT_EQ(InChild(open_it), 0);
  EXPECT_EQ(Filtered(open_it), EACCES);
  EXPECT_EQ(Landlocked(open_it), EACCES);
  EXPECT_EQ(Confined(open_it), EACCES);
  EXPECT_EQ(Filtered([&] { return ErrorOf(syscall(SYS_openat2, AT_FDCWD, "/", 0, 0)); }), EACCES);
  EXPECT_EQ(Landlocked([] { return ErrorOf(open("/", O_RDONLY | O_DIRECTORY)); }), EACCES);
}

TEST_F(SandboxTest, NoFileIsCreatedOrRemoved) {
  const std::string kept = Write("kept", "kept");
  const std::string path = In("created");
  const auto create = [&] { return ErrorOf(open(path.c_str(), O_WRONLY | O_CREAT, 0600)); };
  EXPECT_EQ(Filtered(create), EACCES);
  EXPECT_EQ(Landlocked(create), EACCES);
  EXPECT_EQ(Confined(create), EACCES);
  const auto remove = [&] { return ErrorOf(unlink(kept.c_str())); };
  EXPECT_EQ(Landlocked(remove), EACCES);
  EXPECT_EQ(Filtered(remove), -SIGSYS);
  EXPECT_EQ(Landlocked([&] { return ErrorOf(truncate(kept.c_str(), 0)); }), EACCES);
  EXPECT_EQ(Landlocked([&] { return ErrorOf(mkdir(path.c_str(), 0700)); }), EACCES);
  EXPECT_EQ(Confined([&] { return ErrorOf(rename(kept.c_str(), path.c_str())); }), -SIGSYS);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  EXPECT_EQ(Read(kept), "kept");
}

TEST_F(SandboxTest, NoSocketIsMadeOrConnected) {
  for (const int family : {AF_INET, AF_INET6, AF_UNIX, AF_NETLINK}) {
    const auto make = [&] { return ErrorOf(socket(family, SOCK_DGRAM, 0)); };
    EXPECT_EQ(Filtered(make), -SIGSYS) << family;
    EXPECT_EQ(Confined(make), -SIGSYS) << family;
  }
  EXPECT_EQ(Confined([] {
              int pair[2];
              return ErrorOf(socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
            }),
            -SIGSYS);

  // Even one that was open before.
  const Listener listener;
  const UniqueFd mine(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto connect_it = [&] { return listener.Connect(mine.get()); };
  EXPECT_EQ(Filtered(connect_it), -SIGSYS);
  constexpr long kAbiWithTcp = 4;
  const long abi = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
  EXPECT_EQ(Landlocked(connect_it), abi >= kAbiWithTcp ? EACCES : 0);
}

TEST_F(SandboxTest, NoProgramIsStarted) {
  const auto execute = [] {
    char* const argv[] = {const_cast<char*>("true"), nullptr};
    return ErrorOf(execv("/bin/true", argv));
  };
  EXPECT_EQ(InChild(execute), 0);
  EXPECT_EQ(Filtered(execute), -SIGSYS);
  EXPECT_EQ(Landlocked(execute), EACCES);
  EXPECT_EQ(Confined(execute), -SIGSYS);
  EXPECT_EQ(Filtered([] { return system("true"); }), -SIGSYS);
  EXPECT_EQ(Filtered([] { return ErrorOf(syscall(SYS_execveat, 0, "", nullptr, nullptr, 0)); }),
            -SIGSYS);
}

TEST_F(SandboxTest, NoProcessIsMade) {
  const auto copy = [] { return ErrorOf(fork()); };
  EXPECT_EQ(Filtered(copy), -SIGSYS);
  EXPECT_EQ(Confined(copy), -SIGSYS);
  // A thread that does not share everything, and one in a new namespace.
  for (const unsigned long flags : {CLONE_VM | SIGCHLD, CLONE_NEWUSER | SIGCHLD})
    EXPECT_EQ(Filtered([&] { return ErrorOf(syscall(SYS_clone, flags, 0, 0, 0, 0)); }), -SIGSYS);
  EXPECT_EQ(Filtered([] { return ErrorOf(syscall(SYS_clone3, nullptr, 0)); }), ENOSYS);
}

TEST_F(SandboxTest, NoMemoryBecomesExecutable) {
  const auto map = [](int protection) {
    return mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  };
  const auto map_executable = [&] { return map(PROT_READ | PROT_EXEC) == MAP_FAILED ? errno : 0; };
  const auto make_executable = [&] {
    return ErrorOf(mprotect(map(PROT_READ | PROT_WRITE), 4096, PROT_READ | PROT_EXEC));
  };
  EXPECT_EQ(InChild(map_executable), 0);
  EXPECT_EQ(InChild(make_executable), 0);
  EXPECT_EQ(Filtered(map_executable), EACCES);
  EXPECT_EQ(Filtered(make_executable), EACCES);
  EXPECT_EQ(Confined(make_executable), EACCES);
}

TEST_F(SandboxTest, NoOtherProcessIsReached) {
  const pid_t parent = getpid();
  const auto signal_it = [&] { return ErrorOf(kill(parent, SIGURG)); };
  EXPECT_EQ(InChild(signal_it), 0);
  EXPECT_EQ(Filtered(signal_it), -SIGSYS);
  EXPECT_EQ(Confined(signal_it), -SIGSYS);
  constexpr long kAbiWithScopes = 6;
  const long abi = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
  EXPECT_EQ(Landlocked(signal_it), abi >= kAbiWithScopes ? EPERM : 0);
  EXPECT_EQ(Filtered([&] { return ErrorOf(syscall(SYS_tgkill, parent, parent, SIGURG)); }),
            -SIGSYS);
  EXPECT_EQ(Filtered([&] { return ErrorOf(ptrace(PTRACE_ATTACH, parent, 0, 0)); }), -SIGSYS);
  EXPECT_EQ(Filtered([&] { return ErrorOf(syscall(SYS_prlimit64, parent, 0, 0, 0)); }), EPERM);
}

TEST_F(SandboxTest, OtherSystemCallsAreStopped) {
  for (const int call : {SYS_process_vm_readv,
                         SYS_process_vm_writev,
                         SYS_io_uring_setup,
                         SYS_bpf,
                         SYS_perf_event_open,
                         SYS_userfaultfd,
                         SYS_keyctl,
                         SYS_mount,
                         SYS_unshare,
                         SYS_setns,
                         SYS_chroot,
                         SYS_setuid,
                         SYS_pidfd_open,
                         SYS_personality,
                         SYS_pkey_mprotect,
                         SYS_shmget,
                         SYS_open_by_handle_at,
                         SYS_symlinkat,
                         SYS_linkat,
                         SYS_fchmod,
                         SYS_inotify_init1,
                         SYS_tkill,
                         SYS_rt_sigqueueinfo,
                         SYS_setsid,
                         SYS_init_module,
                         SYS_memfd_secret,
                         100'000}) {
    EXPECT_EQ(Filtered([&] { return ErrorOf(syscall(call, 0, 0, 0, 0, 0, 0)); }), -SIGSYS) << call;
  }
}

#ifdef __x86_64__
// Another architecture's call numbers would pass as those of harmless calls.
TEST_F(SandboxTest, SystemCallsOfOtherArchitecturesAreStopped) {
  constexpr long kX32 = 0x40000000;
  EXPECT_EQ(Filtered([] { return ErrorOf(syscall(kX32 + SYS_getpid)); }), -SIGSYS);
  EXPECT_EQ(Filtered([] {
              long result = 20;  // getpid for 32 bits, writev for 64
              __asm__ volatile("int $0x80" : "+a"(result) : : "memory");
              return 0;
            }),
            -SIGSYS);
}
#endif

// With the parts of this build, since sanitizers need more.
TEST_F(SandboxTest, WhatDecodingNeedsWorks) {
  const std::string input = Write("input", std::string(100'000, 'i'));
  const UniqueFd in(open(input.c_str(), O_RDONLY | O_CLOEXEC));
  const UniqueFd out(open(Write("output", "old content").c_str(), O_WRONLY | O_CLOEXEC));
  const void* mapped = mmap(nullptr, 100'000, PROT_READ, MAP_PRIVATE, in.get(), 0);
  ASSERT_NE(mapped, MAP_FAILED);
  EXPECT_EQ(Confined(
                [&] {
                  const auto* bytes = static_cast<const char*>(mapped);
                  if (bytes[0] != 'i' || bytes[99'999] != 'i') return 1;
                  if (ftruncate(out.get(), 0) != 0 || pwrite(out.get(), "new", 3, 0) != 3) return 2;
                  // Small blocks and large ones come from different calls.
                  std::vector<std::vector<char>> pieces;
                  for (std::size_t size = 1; size < (std::size_t{32} << 20); size *= 2)
                    pieces.emplace_back(size, 'x');
                  int sum = 0;
                  std::thread first([&] { sum += static_cast<int>(pieces.size()); });
                  first.join();
                  std::thread second([&] { pieces.clear(); });
                  second.join();
                  if (sum != 25) return 3;
                  try {
                    throw std::runtime_error("caught");
                  } catch (const std::exception&) {
                    return 0;
                  }
                },
                SandboxParts{}),
            0);
  EXPECT_EQ(Read(In("output")), "new");
}

TEST_F(SandboxTest, AbortEndsWithItsSignal) {
  EXPECT_EQ(Confined([]() -> int {
              std::signal(SIGABRT, SIG_DFL);
              std::abort();
            }),
            -SIGABRT);
}

// Makes the kernel seem to lack a system call, or one of the options of prctl.
void Lack(std::vector<sock_filter> condition, std::uint32_t error) {
  std::vector<sock_filter> program{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  program.insert(program.end(), condition.begin(), condition.end());
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    _exit(kNotStopped);
  }
}

void LackLandlock() {
  Lack({BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_landlock_create_ruleset, 0, 1)}, ENOSYS);
}

void LackCloseRange() {
  Lack({BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1)}, ENOSYS);
}

void LackSeccomp() {
  Lack({BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prctl, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PR_SET_SECCOMP, 0, 1)},
       EINVAL);
}

TEST_F(SandboxTest, OtherDescriptorsAreClosed) {
  const std::string secret = Write("secret", "secret");
  const UniqueFd first(open(secret.c_str(), O_RDONLY | O_CLOEXEC));
  const UniqueFd kept(open(secret.c_str(), O_RDONLY | O_CLOEXEC));
  const UniqueFd last(open(secret.c_str(), O_RDONLY | O_CLOEXEC));
  const auto open_ones_after = [&](const std::function<void()>& lack) {
    return InChild([&] {
      lack();
      CloseOtherDescriptors(std::vector<int>{kept.get()});
      int open_ones = 0;
      for (int fd = 0; fd < 100; ++fd)
        if (fcntl(fd, F_GETFD) >= 0) open_ones += fd == kept.get() ? 1 : 10;
      return open_ones;
    });
  };
  constexpr int kOneAndStandardError = 11;
  EXPECT_EQ(open_ones_after([] {}), kOneAndStandardError);
  EXPECT_EQ(open_ones_after(LackCloseRange), kOneAndStandardError);
}

TEST_F(SandboxTest, ReportsWhatTheKernelLacks) {
  constexpr int kNoLandlock = 1;
  constexpr int kNoSeccomp = 2;
  const auto gaps_after = [](const std::function<void()>& lack) {
    return InChild([&] {
      lack();
      SandboxParts parts;
      parts.landlock = true;
      parts.seccomp = true;
      const SandboxGaps gaps = EnterSandbox({}, parts);
      return (gaps.landlock ? kNoLandlock : 0) + (gaps.seccomp ? kNoSeccomp : 0);
    });
  };
  EXPECT_EQ(gaps_after([] {}), 0);
  EXPECT_EQ(gaps_after(LackLandlock), kNoLandlock);
  EXPECT_EQ(gaps_after(LackSeccomp), kNoSeccomp);
  EXPECT_EQ(gaps_after([] {
              LackLandlock();
              LackSeccomp();
            }),
            kNoLandlock + kNoSeccomp);
}

}  // namespace
