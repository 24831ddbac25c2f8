#include <dirent.h>
#include <fnmatch.h>

#include <algorithm>
#include <string_view>

#include "platform/index_filesystem.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldoindexutils::filesystem {

// Not glob(3), which takes the whole path as a pattern and looks at every match once more. This
// runs once for every photo, so it opens, reads and closes the directory and does nothing else.
std::vector<std::string> GlobFiles(const std::string& directory, const std::string& pattern) {
  std::vector<std::string> paths;
  const keldo::UniqueDir stream(::opendir(directory.c_str()));
  if (!stream) return paths;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..") continue;
    if (::fnmatch(pattern.c_str(), entry->d_name, FNM_PERIOD) != 0) continue;
    paths.push_back(keldo::JoinPath(directory, name));
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace keldoindexutils::filesystem
