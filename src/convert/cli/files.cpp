#include "convert/cli/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "convert/pixels/image.h"

namespace keldo::convert {
namespace {

[[noreturn]] void Fail(const std::string& path) {
  throw ImageError(ImageError::Kind::kOutput, "cannot write " + path + ": " + LastErrorText());
}

FileIdentity IdentityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

}  // namespace

OutputFiles::~OutputFiles() {
  if (keep_) return;
  for (const File& file : files_) {
    // Somebody may have put another file in its place by now.
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
    // Another converter would write over the photo.
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
