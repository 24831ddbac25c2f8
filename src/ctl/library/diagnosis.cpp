#include "ctl/library/diagnosis.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>

#include "media/formats.h"
#include "media/image_header.h"
#include "platform/file_types.h"
#include "platform/text.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "thumbs/paths.h"
#include "thumbs/tool_selection.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr std::size_t kLookedAt = 4096;

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The first or last bytes of a file.
std::string ReadPart(int fd, off_t from) {
  std::string bytes(kLookedAt, '\0');
  const ssize_t count = ::pread(fd, bytes.data(), bytes.size(), from);
  bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return bytes;
}

bool IsAllZero(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == '\0'; });
}

// What a file is, if it is something that people mistake for a photo; else null.
const char* ForeignContent(std::string_view head) {
  struct Form {
    std::size_t at;
    std::string_view bytes;
    const char* name;
  };
  constexpr std::array<Form, 9> kForms{{{0, "%PDF-", "a PDF document"},
                                        {0, "<!DOCTYPE", "a web page"},
                                        {0, "<html", "a web page"},
                                        {0, "<?xml", "an XML document"},
                                        {0, "<svg", "an SVG drawing"},
                                        {0, "PK\x03\x04", "a ZIP archive"},
                                        {0,
                                         "\x7F"
                                         "ELF",
                                         "a program"},
                                        {4, "ftypisom", "a video"},
                                        {4, "ftypmp4", "a video"}}};
  for (const Form& form : kForms) {
    if (head.size() >= form.at && head.substr(form.at).starts_with(form.bytes)) return form.name;
  }
  return nullptr;
}

// A JPEG file ends with this marker; cameras may append their own data after it.
bool LacksJpegEnd(int fd, off_t size, std::string_view head) {
  constexpr std::string_view kEnd = "\xFF\xD9";
  if (media::DetectFormat(AsBytes(head)) != media::Format::kJpeg) return false;
  const off_t from = std::max<off_t>(0, size - static_cast<off_t>(kLookedAt));
  return ReadPart(fd, from).find(kEnd) == std::string::npos;
}

std::string WhatIsWrongInside(const std::string& path, int fd, off_t size) {
  const std::string head = ReadPart(fd, 0);
  if (IsAllZero(head)) return "contains zeros instead of an image, as after an interrupted copy";
  if (const char* other = ForeignContent(head)) return "is " + std::string(other) + ", not a photo";
  if (LacksJpegEnd(fd, size, head)) return "is cut off: the end of the image is missing";
  const bool is_raw = keldoindexutils::DoesRawImage(keldoindexutils::GetFileExtension(path));
  if (!is_raw && !media::ReadImageHeader(path)) {
    return "is damaged at its start, or not a photo at all";
  }
  return {};
}

// Why no thumbnails can be made here; empty if they can.
std::string ProblemWithPlace(const std::string& photo_path) {
  const std::string directory = DirectoryOf(photo_path);
  const std::string metadata = JoinPath(directory, kMetadataDirectory);
  const std::string& written_to = ::access(metadata.c_str(), F_OK) == 0 ? metadata : directory;
  if (::access(written_to.c_str(), W_OK | X_OK) != 0) {
    return "the folder cannot be written to: " + std::string(std::strerror(errno));
  }
  if (IsFileSystemRejected(directory)) return "the folder is on a network share or a disk image";
  if (!HasDiskSpace(directory)) return "less than 1 GiB is free on the volume";
  const std::string converter = ConverterPath();
  if (::access(converter.c_str(), X_OK) != 0) return "the converter is missing: " + converter;
  return {};
}

// Why the file cannot be opened or used; empty if it can.
std::string ProblemWithFile(const std::string& path, UniqueFd& fd, struct stat& status) {
  fd.reset(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd.valid()) {
    return errno == ENOENT ? "is gone" : "cannot be read: " + std::string(std::strerror(errno));
  }
  if (::fstat(fd.get(), &status) != 0)
    return "cannot be read: " + std::string(std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return "is not a regular file";
  if (status.st_size == 0) return "is empty";
  return {};
}

}  // namespace

std::string WhyFailed(const std::string& photo_path) {
  UniqueFd fd;
  struct stat status {};
  std::string problem = ProblemWithFile(photo_path, fd, status);
  if (problem.empty()) problem = ProblemWithPlace(photo_path);
  if (problem.empty()) problem = WhatIsWrongInside(photo_path, fd.get(), status.st_size);
  if (!problem.empty()) return problem;
  return "the converter rejected it; the system log may say more: journalctl -t keldothumb";
}

std::string WhyUnfinished(const std::string& photo_path) {
  UniqueFd fd;
  struct stat status {};
  std::string problem = ProblemWithFile(photo_path, fd, status);
  if (problem.empty()) problem = ProblemWithPlace(photo_path);
  if (!problem.empty()) return problem;
  if (IsDirectoryLocked(DirectoryOf(photo_path))) return "another run is working on the folder";
  return "not made yet; if a run skips it, the system log may say why: journalctl -t "
         "keldothumb";
}

bool IsDirectoryLocked(const std::string& directory) {
  struct stat status {};
  if (::stat(JoinPath(directory, kMetadataDirectory).c_str(), &status) != 0) return false;
  // A line is "1: FLOCK  ADVISORY  WRITE 4711 08:02:1234 0 EOF". Where the device number is
  // virtual, as for each subvolume of btrfs, the kernel lists a different one there, so only the
  // inode number is compared.
  std::array<char, 64> device{};
  if (major(status.st_dev) != 0) {
    std::snprintf(device.data(), device.size(), " %02x:%02x", major(status.st_dev),
                  minor(status.st_dev));
  }
  const std::string file = device.data() + (":" + std::to_string(status.st_ino) + " ");
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    const bool is_held = line.find(" -> ") == std::string::npos;
    if (is_held && line.find(" FLOCK ") != std::string::npos &&
        line.find(file) != std::string::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace keldo::ctl
