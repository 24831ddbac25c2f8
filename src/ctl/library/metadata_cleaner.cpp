#include "ctl/library/metadata_cleaner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "ctl/console.h"
#include "ctl/library/photo_scan.h"
#include "platform/file_types.h"
#include "thumbs/metadata_names.h"
#include "thumbs/thumb_state.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A regular file of ours.
struct OwnFile {
  std::string name;
  MetadataName what;
  struct stat status {};
};

struct Content {
  std::vector<OwnFile> own;
  bool has_others = false;
};

// The entries of an open directory in byte order; nothing, with errno set, if it cannot be read.
std::optional<std::vector<std::string>> NamesIn(int directory_fd) {
  UniqueFd fd(::openat(directory_fd, ".", kOpenDirectory));
  if (!fd.valid()) return std::nullopt;
  const UniqueDir stream(::fdopendir(fd.get()));
  if (!stream) return std::nullopt;
  static_cast<void>(fd.release());  // the stream closes it
  std::vector<std::string> names;
  for (errno = 0; const dirent* entry = ::readdir(stream.get()); errno = 0) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) return std::nullopt;
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<Content> ContentOf(int metadata_fd) {
  const std::optional<std::vector<std::string>> names = NamesIn(metadata_fd);
  if (!names) return std::nullopt;
  Content content;
  for (const std::string& name : *names) {
    OwnFile file{name, WhatIs(name), {}};
    // A directory or a link with the name of a file of ours is not ours.
    const bool own = file.what.file != MetadataFile::kForeign &&
                     ::fstatat(metadata_fd, name.c_str(), &file.status, AT_SYMLINK_NOFOLLOW) == 0 &&
                     S_ISREG(file.status.st_mode);
    if (own) {
      content.own.push_back(std::move(file));
    } else {
      content.has_others = true;
    }
  }
  return content;
}

void Add(Leftovers& leftovers, const OwnFile& file) {
  leftovers.files.push_back(file.name);
  leftovers.bytes += file.status.st_size;
}

bool IsStaleMarker(const OwnFile& marker, const Content& content, const struct stat& photo) {
  if (marker.what.file != MetadataFile::kMarker) return false;
  if (IsMarkerOutdated(photo, marker.status)) return true;
  return std::any_of(content.own.begin(), content.own.end(), [&](const OwnFile& file) {
    return file.what.file == MetadataFile::kThumbnail && file.what.kind == marker.what.kind &&
           !IsThumbnailOutdated(photo, file.status);
  });
}

std::vector<Leftovers> LeftByGone(const std::string& photo, const Content& content) {
  Leftovers all{Leftovers::Reason::kPhotoGone, photo, {}, 0, content.has_others};
  for (const OwnFile& file : content.own)
    Add(all, file);
  // An empty metadata directory is left over, too.
  if (all.files.empty() && all.has_others) return {};
  return {std::move(all)};
}

std::vector<Leftovers> LeftByRuns(const std::string& photo, const Content& content,
                                  const struct stat& status) {
  Leftovers temporaries{Leftovers::Reason::kTemporary, photo, {}, 0, false};
  Leftovers markers{Leftovers::Reason::kStaleMarker, photo, {}, 0, false};
  for (const OwnFile& file : content.own) {
    if (file.what.file == MetadataFile::kTemporary) Add(temporaries, file);
    if (IsStaleMarker(file, content, status)) Add(markers, file);
  }
  std::vector<Leftovers> found;
  if (!temporaries.files.empty()) found.push_back(std::move(temporaries));
  if (!markers.files.empty()) found.push_back(std::move(markers));
  return found;
}

// Names beginning with "._" hold what another system keeps beside a file, and get no thumbnails.
bool IsPhotoName(const std::string& name) {
  return !name.starts_with("._") && keldoindexutils::DoesPhotoOnWebConvertFile(name);
}

}  // namespace

MetadataCleaner::MetadataCleaner(const std::string& directory)
    : directory_(::open(directory.c_str(), kOpenDirectory)) {
  if (directory_.valid()) {
    state_ = OpenMetadata();
  } else {
    NoteProblem("");
  }
}

MetadataCleaner::State MetadataCleaner::OpenMetadata() {
  struct stat status {};
  if (::fstatat(directory_.get(), kMetadataDirectory, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return State::kNoMetadata;
    NoteProblem(kMetadataDirectory);
    return State::kFailed;
  }
  if (!S_ISDIR(status.st_mode)) return State::kNotDirectory;
  metadata_.reset(::openat(directory_.get(), kMetadataDirectory, kOpenDirectory));
  // Programs that make thumbnails hold this lock while they work on the directory.
  if (metadata_.valid() && ::flock(metadata_.get(), LOCK_EX | LOCK_NB) == 0) return State::kReady;
  if (metadata_.valid() && errno == EWOULDBLOCK) return State::kLocked;
  NoteProblem(kMetadataDirectory);
  return State::kFailed;
}

void MetadataCleaner::NoteProblem(const std::string& name) {
  if (problem_.empty()) {
    problem_ = (name.empty() ? "" : ShownName(name) + ": ") + std::strerror(errno);
  }
}

std::vector<Leftovers> MetadataCleaner::Find() {
  std::vector<Leftovers> found;
  for (const std::string& photo : MetadataOfPhotos()) {
    for (Leftovers& leftovers : Judge(photo))
      found.push_back(std::move(leftovers));
  }
  return found;
}

std::vector<std::string> MetadataCleaner::MetadataOfPhotos() {
  std::optional<std::vector<std::string>> names = NamesIn(metadata_.get());
  if (!names) {
    NoteProblem(kMetadataDirectory);
    return {};
  }
  std::erase_if(*names, [](const std::string& name) { return !IsPhotoName(name); });
  return *names;
}

// A photo is gone only if the system says that it does not exist. One that cannot be examined
// counts as present, and so does a link that leads nowhere at the moment.
MetadataCleaner::Presence MetadataCleaner::LookUp(const std::string& photo, struct stat& status) {
  if (::fstatat(directory_.get(), photo.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return Presence::kGone;
    NoteProblem(photo);
    return Presence::kOther;
  }
  const bool is_photo =
      ::fstatat(directory_.get(), photo.c_str(), &status, 0) == 0 && S_ISREG(status.st_mode);
  return is_photo ? Presence::kPhoto : Presence::kOther;
}

UniqueFd MetadataCleaner::OpenMetadataOf(const std::string& photo) {
  UniqueFd fd(::openat(metadata_.get(), photo.c_str(), kOpenDirectory));
  // A link or a file is not ours, and one that is gone needs no message.
  if (!fd.valid() && errno != ENOTDIR && errno != ELOOP && errno != ENOENT) {
    NoteProblem(std::string(kMetadataDirectory) + "/" + photo);
  }
  return fd;
}

std::vector<Leftovers> MetadataCleaner::Judge(const std::string& photo) {
  struct stat status {};
  const Presence presence = LookUp(photo, status);
  if (presence == Presence::kOther) return {};
  const UniqueFd fd = OpenMetadataOf(photo);
  if (!fd.valid()) return {};
  const std::optional<Content> content = ContentOf(fd.get());
  if (!content) {
    NoteProblem(std::string(kMetadataDirectory) + "/" + photo);
    return {};
  }
  return presence == Presence::kGone ? LeftByGone(photo, *content)
                                     : LeftByRuns(photo, *content, status);
}

Removal MetadataCleaner::Remove(const Leftovers& leftovers) {
  Removal removal;
  const UniqueFd fd = OpenMetadataOf(leftovers.photo);
  if (!fd.valid()) return removal;
  for (const std::string& name : leftovers.files) {
    struct stat status {};
    if (!StillHas(leftovers, name) ||
        ::fstatat(fd.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    if (::unlinkat(fd.get(), name.c_str(), 0) == 0) {
      removal.files.push_back(name);
      removal.bytes += status.st_size;
    } else if (errno != ENOENT) {
      removal.problem = std::strerror(errno);
    }
  }
  if (leftovers.reason == Leftovers::Reason::kPhotoGone && !leftovers.has_others) {
    RemoveDirectoryOf(leftovers.photo, removal);
  }
  return removal;
}

bool MetadataCleaner::StillHas(const Leftovers& leftovers, const std::string& name) {
  const std::vector<Leftovers> now = Judge(leftovers.photo);
  return std::any_of(now.begin(), now.end(), [&](const Leftovers& judged) {
    return judged.reason == leftovers.reason &&
           std::find(judged.files.begin(), judged.files.end(), name) != judged.files.end();
  });
}

void MetadataCleaner::RemoveDirectoryOf(const std::string& photo, Removal& removal) {
  struct stat status {};
  if (LookUp(photo, status) != Presence::kGone) return;
  if (::unlinkat(metadata_.get(), photo.c_str(), AT_REMOVEDIR) == 0) {
    removal.directory = true;
  } else if (errno != ENOENT && errno != ENOTEMPTY && errno != EEXIST && removal.problem.empty()) {
    removal.problem = std::strerror(errno);
  }
}

}  // namespace keldo::ctl
