// Copying what the external dcraw prints into a file.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/process.h"
#include "platform/system.h"
#include "process/output.h"
#include "render/raw_decode.h"
#include "thumbs/paths.h"
#include "util/handles.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";
constexpr std::size_t kCopyBufferSize = 4096;
constexpr int kErrorLevel = 3;

// Line values of this source's messages.
constexpr int kStartFailedLine = 751;
constexpr int kOpenFailedLine = 757;
constexpr int kReadFailedLine = 766;
constexpr int kWriteFailedLine = 775;
constexpr int kShortWriteLine = 780;

struct ClosePipe {
  void operator()(FILE* pipe) const { KLIBCPclose(pipe); }
};

// Writes one block. False, and logged, when not all of it could be written.
bool WriteBlock(int fd, const char* data, std::size_t size, const std::string& path) {
  const ssize_t written = write(fd, data, size);
  if (written < 0) {
    syslog(LOG_ERR, "%s:%d write failed, path=%s, %s", kSource, kWriteFailedLine, path.c_str(),
           std::strerror(errno));
    return false;
  }
  if (static_cast<std::size_t>(written) != size) {
    syslog(LOG_ERR, "%s:%d write size wrong, read_count=%zd, write_count=%zd", kSource,
           kShortWriteLine, static_cast<ssize_t>(size), written);
    return false;
  }
  return true;
}

// Copies to the end of the output. True when at least one byte arrived and all were written.
bool CopyPipe(FILE* pipe, int out, const std::string& source, const std::string& out_path) {
  process::StreamReader reader(pipe);
  std::array<char, kCopyBufferSize> block{};
  std::int64_t total = 0;
  while (true) {
    const ssize_t count = reader.Read(block);
    if (count < 0) {
      syslog(LOG_ERR, "%s:%d read failed, path=%s", kSource, kReadFailedLine, source.c_str());
      return false;
    }
    if (count == 0) return total > 0;
    if (!WriteBlock(out, block.data(), static_cast<std::size_t>(count), out_path)) return false;
    total += count;
  }
}

}  // namespace

bool RunDcrawToFile(const std::string& source_path, const std::string& out_path,
                    const char* option) {
  const std::unique_ptr<FILE, ClosePipe> pipe(
      KLIBCPopen(paths::kDcraw, "r", option, "-c", source_path.c_str(), nullptr));
  if (!pipe) {
    AppLogError(kErrorLevel, "%s:%d KLIBCPopen [%s %s -c] failed", kSource, kStartFailedLine,
                paths::kDcraw, option);
    return false;
  }
  const UniqueFile out(std::fopen(out_path.c_str(), "wbe"));
  if (!out) {
    syslog(LOG_ERR, "%s:%d fopen failed, path=%s, errno=%d", kSource, kOpenFailedLine,
           out_path.c_str(), errno);
    return false;
  }
  // The output is closed first, then the pipe: the child has then written all it will.
  return CopyPipe(pipe.get(), fileno(out.get()), source_path, out_path);
}

}  // namespace keldo
