#include "convert/sandbox/sandbox.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "convert/sandbox/syscall_filter.h"
#include "util/handles.h"

namespace keldo::convert {
namespace {

// Landlock, as far as it grew after the kernel headers that we can be built with.
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
  // Whoever overlooks the signal is killed a little later.
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
  // Its flags are out of a filter's sight. The C library then takes clone.
  filter.Refuse(__NR_clone3, ENOSYS);
  return filter.Install();
}

SandboxGaps EnterSandbox(const WorkerLimits& limits, const SandboxParts& parts) {
  SandboxGaps gaps;
  // It takes a descriptor for a moment.
  if (parts.landlock) gaps.landlock = !ApplyLandlock();
  ApplyLimits(limits, parts);
  if (parts.seccomp) gaps.seccomp = !ApplySeccomp();
  return gaps;
}

}  // namespace keldo::convert
