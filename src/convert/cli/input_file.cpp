#include "convert/cli/input_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "convert/pixels/image.h"

namespace keldo::convert {
namespace {

constexpr std::string_view kFirstFrame = "[0]";

int OpenOperand(const std::string& operand) {
  if (operand.ends_with(kFirstFrame)) {
    const int fd =
        OpenWithoutWaiting(operand.substr(0, operand.size() - kFirstFrame.size()), O_RDONLY);
    if (fd >= 0 || (errno != ENOENT && errno != ENOTDIR)) return fd;
  }
  return OpenWithoutWaiting(operand, O_RDONLY);
}

}  // namespace

std::string LastErrorText() {
  return std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

int OpenWithoutWaiting(const std::string& path, int flags) {
  constexpr int kFlags = O_CLOEXEC | O_NOCTTY;
  // The umask applies.
  constexpr mode_t kMode = 0666;
  const int fd = open(path.c_str(), flags | kFlags | O_NONBLOCK, kMode);
  if (fd >= 0 || errno != EWOULDBLOCK) return fd;
  return open(path.c_str(), flags | kFlags, kMode);
}

InputFile::InputFile(const std::string& operand) : fd_(OpenOperand(operand)) {
  struct stat status {};
  if (!fd_.valid() || fstat(fd_.get(), &status) != 0)
    throw ImageError(ImageError::Kind::kCorrupt, LastErrorText());
  identity_ = {status.st_dev, status.st_ino};
  regular_ = S_ISREG(status.st_mode);
  size_ = static_cast<std::size_t>(status.st_size);
}

InputFile::~InputFile() {
  if (data_ != nullptr) munmap(const_cast<std::uint8_t*>(data_), size_);
}

void InputFile::Map() {
  if (!regular_) throw ImageError(ImageError::Kind::kUnsupported, "it is not a regular file");
  if (size_ == 0) throw ImageError(ImageError::Kind::kCorrupt, "the file is empty");
  // What cannot be read says why here; in the mapping it would end this process.
  std::uint8_t first = 0;
  if (pread(fd_.get(), &first, 1, 0) < 0)
    throw ImageError(ImageError::Kind::kCorrupt, LastErrorText());
  void* mapped = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_.get(), 0);
  // Some file systems in user space cannot map; the other converter reads.
  if (mapped == MAP_FAILED) throw ImageError(ImageError::Kind::kUnsupported, LastErrorText());
  data_ = static_cast<const std::uint8_t*>(mapped);
  fd_.reset();
}

}  // namespace keldo::convert
