// When a termination request (SIGTERM) may interrupt the run.
//
// The handler does real work: it removes a file, reads the process table and calls exit. None of
// that is safe in the middle of an allocation or a database call, so the signal is held back
// everywhere and let in only where nothing is half done: between steps, and while the program
// sleeps for a child, a stream or the daemon.
#pragma once

#include <poll.h>

#include <span>

namespace keldo {

/// Holds SIGTERM back from now on. Called first thing in a program, before a handler is installed.
void HoldTermination();

/// Lets a SIGTERM that came meanwhile reach its handler now; does nothing when there is none.
/// Costs one system call. Errno is kept.
void LetTerminationIn();

/// Waits like poll(2) on `events` with SIGTERM let in. `timeout_ms` below 0 waits without end.
/// Returns the number of ready entries, 0 at the time-out, -1 with errno set (EINTR included).
[[nodiscard]] int WaitForEvents(std::span<pollfd> events, int timeout_ms);

}  // namespace keldo
