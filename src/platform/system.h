// The machine and its log.
#pragma once

/// Writes the machine's total memory in KiB (as the MemTotal line of /proc/meminfo counts it) to
/// `total_kib`. Returns 0 on success; on failure -1, and `total_kib` is left as it was.
int GetTotalMemory(long* total_kib);

/// Logs one line for the application. `level` 3 is the error level. `format` is printf's.
void AppLogError(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
