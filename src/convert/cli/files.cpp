#include "convert/cli/files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "convert/pixels/image.h"
#include "convert/sandbox/message.h"

namespace keldo::convert {
namespace {

// Opens a file without waiting for the other end of a pipe, and without what a terminal would do.
// It waits only where a file server holds a lease on the file for a client, until the lease is
// released. Returns -1 and sets errno like open.
int OpenWithoutWaiting(const std::string& path, int flags) {
  constexpr int kFlags = O_CLOEXEC | O_NOCTTY;
  // The umask applies.
  constexpr mode_t kMode = 0666;
  const int fd = open(path.c_str(), flags | kFlags | O_NONBLOCK, kMode);
  if (fd >= 0 || errno != EWOULDBLOCK) return fd;
  return open(path.c_str(), flags | kFlags, kMode);
}

constexpr std::string_view kFirstFrame = "[0]";

int OpenOperand(const std::string& operand) {
  if (operand.ends_with(kFirstFrame)) {
    const int fd =
        OpenWithoutWaiting(operand.substr(0, operand.size() - kFirstFrame.size()), O_RDONLY);
    if (fd >= 0 || (errno != ENOENT && errno != ENOTDIR)) return fd;
  }
  return OpenWithoutWaiting(operand, O_RDONLY);
}

[[noreturn]] void Fail(const std::string& path) {
  throw ImageError(ImageError::Kind::kOutput, "cannot write " + path + ": " + LastErrorText());
}

FileIdentity IdentityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

}  // namespace

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
  // An error of reading is reported here; in the mapping it would end this process.
  std::uint8_t first = 0;
  if (pread(fd_.get(), &first, 1, 0) < 0)
    throw ImageError(ImageError::Kind::kCorrupt, LastErrorText());
  void* mapped = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_.get(), 0);
  // Some file systems in user space cannot map files; ImageMagick reads them.
  if (mapped == MAP_FAILED) throw ImageError(ImageError::Kind::kUnsupported, LastErrorText());
  data_ = static_cast<const std::uint8_t*>(mapped);
  fd_.reset();
}

OutputFiles::~OutputFiles() {
  if (keep_) return;
  for (const File& file : files_) {
    // By now somebody may have put another file in its place.
    struct stat status {};
    if (file.created && lstat(file.path.c_str(), &status) == 0 &&
        IdentityOf(status) == file.identity) {
      unlink(file.path.c_str());
    }
  }
}

bool OutputFiles::Open(const std::vector<Step>& steps, const FileIdentity& input) {
  bool ours = true;
  for (const Step& step : steps) {
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL;
    File file{step.output, UniqueFd(OpenWithoutWaiting(step.output, kNew)), {}, true};
    if (!file.fd.valid() && errno == EEXIST) {
      file.created = false;
      file.fd.reset(OpenWithoutWaiting(step.output, O_WRONLY));
      // A pipe without a reader, or a link that leads nowhere yet.
      if (!file.fd.valid() && (errno == ENXIO || errno == ENOENT)) {
        ours = false;
        continue;
      }
    }
    struct stat status {};
    if (!file.fd.valid() || fstat(file.fd.get(), &status) != 0) Fail(step.output);
    file.identity = IdentityOf(status);
    // ImageMagick would write over the photo.
    if (file.identity == input) {
      throw ImageError(ImageError::Kind::kOutput, step.output + " is the photo itself");
    }
    const auto is_same = [&](const File& other) { return other.identity == file.identity; };
    if (!S_ISREG(status.st_mode) || std::any_of(files_.begin(), files_.end(), is_same)) {
      ours = false;
    }
    descriptors_.push_back(file.fd.get());
    files_.push_back(std::move(file));
  }
  return ours;
}

void OutputFiles::Close() {
  for (File& file : files_) {
    if (close(file.fd.release()) != 0 && errno != EINTR) Fail(file.path);
  }
  Keep();
}

}  // namespace keldo::convert
