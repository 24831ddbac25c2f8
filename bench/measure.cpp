// Runs a command a number of times in sequence and reports its cost, including every process that
// it waited for.
//
//   bench_measure REPORT RUNS COMMAND ARGUMENT...
//
// Writes one line to REPORT: wall time and CPU time in microseconds, and the largest process's peak
// memory in KiB. This is a separate small program because a process inherits the peak of the one
// that starts it, and Python's would hide those of the programs that are compared.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Usage {
  long long wall_us = 0;
  long long cpu_us = 0;
  long peak_kib = 0;
};

long long Microseconds(const timeval& time) {
  return static_cast<long long>(time.tv_sec) * 1'000'000 + time.tv_usec;
}

[[noreturn]] void Fail(const char* what, int error) {
  std::fprintf(stderr, "bench_measure: %s: %s\n", what, std::strerror(error));
  std::exit(127);
}

// Returns the exit status as a shell reports it.
int RunOnce(char** command, Usage& usage) {
  const auto start = std::chrono::steady_clock::now();
  pid_t child = -1;
  const int error = posix_spawnp(&child, command[0], nullptr, nullptr, command, environ);
  if (error != 0) Fail(command[0], error);
  int status = 0;
  rusage spent{};
  if (wait4(child, &status, 0, &spent) != child) Fail("wait", errno);
  const auto wall = std::chrono::steady_clock::now() - start;
  usage.wall_us += std::chrono::duration_cast<std::chrono::microseconds>(wall).count();
  usage.cpu_us += Microseconds(spent.ru_utime) + Microseconds(spent.ru_stime);
  usage.peak_kib = std::max(usage.peak_kib, spent.ru_maxrss);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("usage: bench_measure REPORT RUNS COMMAND ARGUMENT...\n", stderr);
    return 2;
  }
  Usage usage;
  for (long runs = std::strtol(argv[2], nullptr, 10); runs > 0; --runs) {
    const int status = RunOnce(argv + 3, usage);
    if (status != 0) return status;
  }
  std::FILE* report = std::fopen(argv[1], "we");
  if (report == nullptr) Fail(argv[1], errno);
  std::fprintf(report, "%lld %lld %ld\n", usage.wall_us, usage.cpu_us, usage.peak_kib);
  if (std::fclose(report) != 0) Fail(argv[1], errno);
  return 0;
}
