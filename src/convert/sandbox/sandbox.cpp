#include "convert/sandbox/sandbox.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "util/handles.h"

namespace keldo::convert {
namespace {

// The parts of Landlock that are newer than the oldest kernel headers that we build with.
struct LandlockRuleset {
  std::uint64_t files;
  std::uint64_t network;
  std::uint64_t scopes;
};
constexpr std::uint64_t kTcpRights = 3;  // bind and connect
constexpr std::uint64_t kScopes = 3;     // abstract UNIX sockets and signals
constexpr long kAbiWithTcp = 4;
constexpr long kAbiWithScopes = 6;

// Every right on files that an ABI knows. The highest bit is the last right that it added.
std::uint64_t FileRights(long abi) {
  constexpr unsigned kRightsOfFirstAbi = 13;
  unsigned rights = kRightsOfFirstAbi;
  if (abi >= 2) ++rights;  // moving to another directory
  if (abi >= 3) ++rights;  // truncating
  if (abi >= 5) ++rights;  // ioctl on devices
  return (std::uint64_t{1} << rights) - 1;
}

void LowerLimit(int resource, rlim_t soft, rlim_t hard) {
  rlimit now{};
  if (getrlimit(static_cast<__rlimit_resource_t>(resource), &now) != 0) return;
  const rlimit lower{std::min(soft, now.rlim_cur), std::min(hard, now.rlim_max)};
  setrlimit(static_cast<__rlimit_resource_t>(resource), &lower);
}

void CloseRange(unsigned first, unsigned last) {
  // Programs that open more than these raise their limit for it.
  constexpr unsigned kUsualLast = 1023;
  if (syscall(SYS_close_range, first, last, 0) == 0) return;
  // Kernels before 5.9 and some containers lack the call.
  for (unsigned fd = first; fd <= std::min(last, kUsualLast); ++fd)
    close(static_cast<int>(fd));
}

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_ARM;
#else
// An architecture that nobody has looked at: it may need other calls than those that are listed.
constexpr std::uint32_t kArchitecture = 0;
#endif

// The lower half of an argument on little-endian machines.
constexpr std::uint32_t ArgumentOffset(std::uint32_t index) {
  return static_cast<std::uint32_t>(offsetof(seccomp_data, args) + index * sizeof(std::uint64_t));
}

sock_filter Load(std::uint32_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset);
}

sock_filter Return(std::uint32_t action) {
  return BPF_STMT(BPF_RET | BPF_K, action);
}

// Goes on with the next instruction when the value is this one, else skips some.
sock_filter UnlessSkip(std::uint32_t value, std::uint8_t skipped) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skipped);
}

std::uint32_t Failure(std::uint32_t error) {
  return error == 0 ? SECCOMP_RET_KILL_PROCESS : SECCOMP_RET_ERRNO | (error & SECCOMP_RET_DATA);
}

// A filter for system calls. A call that is not mentioned kills the process, as does a call in
// another architecture's numbers.
class SyscallFilter {
 public:
  void Allow(std::uint32_t call);
  // The call fails with an errno value.
  void Refuse(std::uint32_t call, std::uint32_t error);

  // A condition on the lower half of an argument: masked, it has the value.
  struct Argument {
    std::uint32_t index;
    std::uint32_t mask;
    std::uint32_t value;
  };
  // Lets the call through when the condition holds; otherwise it fails with `error`, or kills for
  // 0.
  void AllowIf(std::uint32_t call, const Argument& argument, std::uint32_t error);

  // Applies the filter for good. False when the kernel has no such filters.
  [[nodiscard]] bool Install();

 private:
  // What happens to a call, and to those after it up to the next case: instructions that end in a
  // return.
  struct Case {
    std::uint32_t call;
    std::vector<sock_filter> verdict;
  };

  [[nodiscard]] std::vector<Case> CoverAllCalls();
  [[nodiscard]] static std::vector<sock_filter> Search(std::span<const Case> cases);

  std::vector<Case> cases_;
};

void SyscallFilter::Allow(std::uint32_t call) {
  cases_.push_back({call, {Return(SECCOMP_RET_ALLOW)}});
}

void SyscallFilter::Refuse(std::uint32_t call, std::uint32_t error) {
  cases_.push_back({call, {Return(Failure(error))}});
}

void SyscallFilter::AllowIf(std::uint32_t call, const Argument& argument, std::uint32_t error) {
  cases_.push_back(
      {call,
       {Load(ArgumentOffset(argument.index)), BPF_STMT(BPF_ALU | BPF_AND | BPF_K, argument.mask),
        UnlessSkip(argument.value, 1), Return(SECCOMP_RET_ALLOW), Return(Failure(error))}});
}

// The cases in order, with the gaps between them filled and neighbours of one kind made one.
std::vector<SyscallFilter::Case> SyscallFilter::CoverAllCalls() {
  std::sort(cases_.begin(), cases_.end(),
            [](const Case& left, const Case& right) { return left.call < right.call; });
  const Case first_gap{0, {Return(SECCOMP_RET_KILL_PROCESS)}};
  std::vector<Case> covered{first_gap};
  const auto add = [&](const Case& next) {
    if (covered.back().call == next.call) covered.pop_back();
    const bool same = !covered.empty() && covered.back().verdict.size() == 1 &&
                      next.verdict.size() == 1 && covered.back().verdict[0].k == next.verdict[0].k;
    if (!same) covered.push_back(next);
  };
  for (const Case& next : cases_) {
    add(next);
    add({next.call + 1, first_gap.verdict});
  }
  return covered;
}

// The kernel runs a new filter for every call that exists. With a search of one call after the
// other that takes longer than all the rest of the sandbox, so this is a binary search.
std::vector<sock_filter> SyscallFilter::Search(std::span<const Case> cases) {
  constexpr std::size_t kLongestSkip = 255;
  if (cases.size() == 1) return cases[0].verdict;
  const std::size_t middle = cases.size() / 2;
  const std::vector<sock_filter> below = Search(cases.first(middle));
  const std::vector<sock_filter> above = Search(cases.subspan(middle));
  const std::uint32_t first_above = cases[middle].call;
  std::vector<sock_filter> program;
  program.reserve(2 + below.size() + above.size());
  if (below.size() <= kLongestSkip) {
    const auto skip = static_cast<std::uint8_t>(below.size());
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, first_above, skip, 0));
  } else {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, first_above, 0, 1));
    program.push_back(BPF_STMT(BPF_JMP | BPF_JA, static_cast<std::uint32_t>(below.size())));
  }
  program.insert(program.end(), below.begin(), below.end());
  program.insert(program.end(), above.begin(), above.end());
  return program;
}

bool SyscallFilter::Install() {
  if (kArchitecture == 0) return false;
  std::vector<sock_filter> program{Load(offsetof(seccomp_data, arch)), UnlessSkip(kArchitecture, 1),
                                   BPF_STMT(BPF_JMP | BPF_JA, 1), Return(SECCOMP_RET_KILL_PROCESS),
                                   Load(offsetof(seccomp_data, nr))};
  const std::vector<sock_filter> search = Search(CoverAllCalls());
  program.insert(program.end(), search.begin(), search.end());
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Not every architecture has every call; the newer ones lack the old forms.
constexpr std::uint32_t kAllowed[] = {
    // What is open: reading, and writing the thumbnails and messages.
    __NR_read,
    __NR_write,
    __NR_readv,
    __NR_writev,
    __NR_pread64,
    __NR_pwrite64,
    __NR_lseek,
    __NR_fstat,
    __NR_ftruncate,
    __NR_close,
    // Memory.
    __NR_brk,
    __NR_munmap,
    __NR_mremap,
    __NR_madvise,
    // Threads and their locks.
    __NR_futex,
    __NR_set_robust_list,
    __NR_rseq,
    __NR_sched_yield,
    __NR_sched_getaffinity,
    __NR_gettid,
    __NR_getpid,
    __NR_exit,
    __NR_exit_group,
    // Signals, for abort.
    __NR_rt_sigaction,
    __NR_rt_sigprocmask,
    __NR_rt_sigreturn,
    __NR_sigaltstack,
    __NR_restart_syscall,
    // Time, and the machine's size.
    __NR_clock_gettime,
    __NR_clock_getres,
    __NR_clock_nanosleep,
    __NR_nanosleep,
    __NR_gettimeofday,
    __NR_getrusage,
    __NR_sysinfo,
    __NR_getcpu,
    __NR_getrandom,
    __NR_uname,
#ifdef __NR_time
    __NR_time,
#endif
#ifdef __NR_getrlimit
    __NR_getrlimit,
#endif
#ifdef __NR_membarrier
    __NR_membarrier,
#endif
#ifdef __arm__
    __NR__llseek,
    __NR_fstat64,
    __NR_ftruncate64,
    __NR_ugetrlimit,
    __NR_clock_gettime64,
    __NR_clock_nanosleep_time64,
    __NR_futex_time64,
    __ARM_NR_cacheflush,
    __ARM_NR_set_tls,
#endif
};

// Libraries look for settings files, devices and the number of processors, and do without.
constexpr std::uint32_t kLookUps[] = {
    __NR_openat,     __NR_openat2, __NR_faccessat, __NR_faccessat2, __NR_readlinkat,
    __NR_statx,      __NR_getcwd,
#ifdef __NR_newfstatat
    __NR_newfstatat,
#endif
#ifdef __NR_open
    __NR_open,       __NR_access,  __NR_stat,      __NR_lstat,      __NR_readlink,
#endif
#ifdef __arm__
    __NR_stat64,     __NR_lstat64, __NR_fstatat64,
#endif
};

// Threads of this process, with everything shared, and no new namespaces.
constexpr std::uint32_t kThreadFlags =
    CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD;
constexpr std::uint32_t kOtherThreadFlags =
    CLONE_SYSVSEM | CLONE_SETTLS | CLONE_PARENT_SETTID | CLONE_CHILD_CLEARTID | CLONE_DETACHED;

// Libraries ask for these too, and do without.
constexpr std::uint32_t kNotPermitted[] = {
    __NR_prlimit64,
    __NR_sched_setscheduler,
    __NR_sched_getscheduler,
    __NR_sched_setparam,
    __NR_sched_getparam,
    __NR_setpriority,
    __NR_getpriority,
    __NR_get_mempolicy,
    __NR_set_mempolicy,
    __NR_mbind,
    __NR_mlock,
    __NR_munlock,
    __NR_dup,
    __NR_dup3,
    __NR_pipe2,
    __NR_eventfd2,
    __NR_memfd_create,
};

void AllowSomeArguments(SyscallFilter& filter) {
  constexpr std::uint32_t kWhole = ~std::uint32_t{0};
  constexpr std::uint32_t kProtection = 2;
#ifdef __NR_mmap
  filter.AllowIf(__NR_mmap, {kProtection, PROT_EXEC, 0}, EACCES);
#endif
#ifdef __NR_mmap2
  filter.AllowIf(__NR_mmap2, {kProtection, PROT_EXEC, 0}, EACCES);
#endif
  filter.AllowIf(__NR_mprotect, {kProtection, PROT_EXEC, 0}, EACCES);
  // What abort does; no other process can be reached.
  filter.AllowIf(__NR_tgkill, {0, kWhole, static_cast<std::uint32_t>(getpid())}, 0);
  filter.AllowIf(__NR_clone, {0, ~kOtherThreadFlags, kThreadFlags}, 0);
  // Of the calling thread; a codec finds out like this how many processors there are.
  filter.AllowIf(__NR_sched_setaffinity, {0, kWhole, 0}, EPERM);
  filter.AllowIf(__NR_prctl, {0, kWhole, PR_SET_NAME}, EPERM);
  filter.AllowIf(__NR_fcntl, {1, kWhole, F_GETFL}, EPERM);
#ifdef __NR_fcntl64
  filter.AllowIf(__NR_fcntl64, {1, kWhole, F_GETFL}, EPERM);
#endif
}

}  // namespace

void CloseOtherDescriptors(std::span<const int> kept) {
  std::vector<int> sorted(kept.begin(), kept.end());
  sorted.push_back(STDERR_FILENO);
  std::sort(sorted.begin(), sorted.end());
  unsigned first = 0;
  for (const int fd : sorted) {
    const auto next = static_cast<unsigned>(fd);
    if (next > first) CloseRange(first, next - 1);
    first = next + 1;
  }
  CloseRange(first, ~0U);
}

void ApplyLimits(const WorkerLimits& limits, const SandboxParts& parts) {
  // A decoder that ignores the signal is killed a little later.
  constexpr rlim_t kGraceSeconds = 5;
  LowerLimit(RLIMIT_CPU, limits.cpu_seconds, limits.cpu_seconds + kGraceSeconds);
  alarm(limits.seconds);
  LowerLimit(RLIMIT_FSIZE, limits.file_bytes, limits.file_bytes);
  LowerLimit(RLIMIT_CORE, 0, 0);
  if (parts.descriptors) LowerLimit(RLIMIT_NOFILE, 0, 0);
  if (parts.address_space) LowerLimit(RLIMIT_AS, limits.address_space, limits.address_space);
}

bool ApplyLandlock() {
  const long abi =
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (abi < 1) return false;
  // No rule is added, so nothing of what is named here is allowed any more.
  const LandlockRuleset rules{FileRights(abi), abi >= kAbiWithTcp ? kTcpRights : 0,
                              abi >= kAbiWithScopes ? kScopes : 0};
  const UniqueFd ruleset(
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &rules, sizeof(rules), 0)));
  return ruleset.valid() && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

bool ApplySeccomp() {
  SyscallFilter filter;
  for (const std::uint32_t call : kAllowed)
    filter.Allow(call);
  AllowSomeArguments(filter);
  for (const std::uint32_t call : kLookUps)
    filter.Refuse(call, EACCES);
  filter.Refuse(__NR_ioctl, ENOTTY);
  for (const std::uint32_t call : kNotPermitted)
    filter.Refuse(call, EPERM);
  // A filter cannot see its flags. The C library then uses clone.
  filter.Refuse(__NR_clone3, ENOSYS);
  return filter.Install();
}

SandboxGaps EnterSandbox(const WorkerLimits& limits, const SandboxParts& parts) {
  SandboxGaps gaps;
  // It needs a descriptor for a moment.
  if (parts.landlock) gaps.landlock = !ApplyLandlock();
  ApplyLimits(limits, parts);
  if (parts.seccomp) gaps.seccomp = !ApplySeccomp();
  return gaps;
}

}  // namespace keldo::convert
