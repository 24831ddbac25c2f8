#include "ctl/gallery/gallery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <ostream>
#include <utility>

#include "ctl/gallery/page.h"
#include "ctl/gallery/page_data.h"
#include "ctl/library/photo_scan.h"
#include "util/files.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr const char* kStandardOutput = "-";

std::string DirectoryOfPage(const std::string& output) {
  if (output == kStandardOutput) return PathKey(".");
  const std::string page = PathKey(output);
  return std::string(ParentOfKey(page));
}

// Why no page may be written there; empty when it may. A slip such as "-o *.jpg" must not cost a
// photo, and a device or a pipe would be replaced by a file.
std::string ProblemWithOutput(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return std::strerror(EISDIR);
    if (!S_ISREG(status.st_mode)) return "not a regular file";
    const UniqueFd fd = OpenRegularFile(path.c_str());
    std::array<char, 16> head{};
    const ssize_t count = fd.valid() ? ::read(fd.get(), head.data(), head.size()) : -1;
    if (count < 0) return std::strerror(errno);
    if (count > 0 && !LooksLikePage({head.data(), static_cast<std::size_t>(count)})) {
      return "exists and is not a web page; not overwritten";
    }
  }
  const std::string parent(ParentOfKey(path));
  if (::access(parent.c_str(), W_OK | X_OK) != 0) return std::strerror(errno);
  return {};
}

std::string TitleFor(const GalleryRequest& request) {
  if (!request.title.empty()) return ShownName(request.title);
  std::string names;
  const std::string above = DirectoryAbove(request.directories);
  for (const std::string& directory : request.directories)
    names += (names.empty() ? "" : ", ") + ShownName(NameBelow(above, directory));
  return "Thumbnails of " + names;
}

std::string Summary(const std::string& output, const PageData& data) {
  const LibraryCounts& counts = data.counts();
  std::string text = "Wrote " + ShownName(output) + ": " + Counted(counts.photos, "photo") +
                     " in " + Counted(data.folders(), "folder");
  if (counts.unfinished_photos > 0) {
    text += ", " + Grouped(counts.unfinished_photos) + " with thumbnails missing or stale";
  }
  if (counts.failed_photos > 0) text += ", " + Grouped(counts.failed_photos) + " failed";
  return text;
}

}  // namespace

int WriteGallery(const GalleryRequest& request, Console& console) {
  const bool to_file = request.output != kStandardOutput;
  const std::string path = to_file ? PathKey(request.output) : "";
  // Checked before a large library is scanned.
  const std::string problem = to_file ? ProblemWithOutput(path) : "";
  if (!problem.empty()) return console.Fail(request.output, problem);

  PageData data(DirectoryOfPage(request.output), request.directories);
  PhotoScanner scanner(request.profile);
  const bool complete =
      ScanLibrary(request.directories, scanner, console,
                  [&data](const DirectoryState& directory) { data.Add(directory); });
  const std::string page = RenderPage(TitleFor(request), data.Json(std::time(nullptr), !complete));
  if (!to_file) {
    console.out() << page;
  } else if (!ReplaceFile(path, page)) {
    return console.Fail(request.output, std::strerror(errno));
  } else if (!console.style().quiet) {
    console.out() << Summary(request.output, data) << "\n";
  }
  return complete ? 0 : 1;
}

}  // namespace keldo::ctl
