// Giving up everything that decoding an image does not need.
//
// A decoder that a crafted photo has taken over can then compute, write to the descriptors that are
// open, and end; it can neither open a file, connect, start a program nor reach another process.
#pragma once

#include <sys/resource.h>

#include <span>

namespace keldo::convert {

/// What a worker may use up. Where the process has lower limits already, those stay.
struct WorkerLimits {
  static constexpr rlim_t kCpuSeconds = 300;
  /// Long enough for a busy machine and a slow volume. A library that waits for a thread which
  /// could not be started uses no CPU time.
  static constexpr unsigned kSeconds = 900;
  static constexpr rlim_t kFileBytes = rlim_t{256} << 20;
  /// Well above what the limits on an image's pixels allow, since stacks and the allocator reserve
  /// more than they use.
  static constexpr rlim_t kAddressSpace = sizeof(void*) > 4 ? static_cast<rlim_t>(4ULL << 30)
                                                            : static_cast<rlim_t>(3ULL << 30);

  rlim_t cpu_seconds = kCpuSeconds;      ///< SIGXCPU at the end
  unsigned seconds = kSeconds;           ///< by the clock; SIGALRM at the end, 0 for no limit
  rlim_t file_bytes = kFileBytes;        ///< of one output
  rlim_t address_space = kAddressSpace;  ///< bytes; the mapped input is to be added
};

/// Which parts of the sandbox are wanted.
struct SandboxParts {
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizers' shadow memory takes terabytes of address space, they find out by way of a pipe
  // whether memory can be read, and their reports read files and start a program that names source
  // lines.
  static constexpr bool kSanitized = true;
#else
  static constexpr bool kSanitized = false;
#endif
  bool landlock = !kSanitized;
  bool seccomp = !kSanitized;
  bool address_space = !kSanitized;  ///< its limit
  bool descriptors = !kSanitized;    ///< no new ones
};

/// Which parts of the sandbox the kernel does not have.
struct SandboxGaps {
  bool landlock = false;
  bool seccomp = false;
};

/// Closes all descriptors but standard error and those given.
void CloseOtherDescriptors(std::span<const int> kept);

/// Applies the limits, and makes it impossible to get another descriptor. The address space and the
/// descriptors are left alone where `parts` says so.
void ApplyLimits(const WorkerLimits& limits, const SandboxParts& parts);

/// Forbids this process and its threads all use of paths, TCP and, where the kernel can, signals to
/// others and abstract sockets. False when the kernel cannot.
[[nodiscard]] bool ApplyLandlock();

/// Lets only those system calls through that decoding needs: another one kills the process with
/// SIGSYS, looking for a file fails with EACCES. False when the kernel cannot.
[[nodiscard]] bool ApplySeccomp();

/// All of that, in the order that works. To be called by a process with one thread.
[[nodiscard]] SandboxGaps EnterSandbox(const WorkerLimits& limits, const SandboxParts& parts);

}  // namespace keldo::convert
