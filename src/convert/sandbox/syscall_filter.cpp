#include "convert/sandbox/syscall_filter.h"

#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstddef>

namespace keldo::convert {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_ARM;
#else
// One that nobody has looked at: its calls may need others than those that are listed.
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

}  // namespace

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

// The kernel tries a new filter with every call there is, which takes longer than all the rest of
// the sandbox when the calls are looked for one after the other. So they are halved, and halved.
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

}  // namespace keldo::convert
