// The walk of a directory tree.
#include <ftw.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/file.h"
#include "run/keldothumb.h"
#include "thumbs/index.h"
#include "util/termination.h"

namespace keldo {
namespace {

constexpr int kWalkDescriptors = 100;
constexpr int kWalkEndedLine = 1256;

// The profile file of the walk that runs. nftw hands its callback no argument, so this is the one
// piece of process-wide state.
std::string walk_profile_path;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

int VisitEntry(const char* path, const struct stat* /*status*/, int type, struct FTW* position) {
  if (type != FTW_D || !IsDirNameAccepted(path + position->base)) return FTW_SKIP_SUBTREE;
  LetTerminationIn();
  ProcessTarget(path, walk_profile_path);
  return FTW_CONTINUE;
}

}  // namespace

void WalkTree(const std::string& directory, const std::string& profile_path) {
  walk_profile_path = profile_path;
  const int result =
      nftw(directory.c_str(), VisitEntry, kWalkDescriptors, FTW_MOUNT | FTW_ACTIONRETVAL);
  const int walk_error = errno;
  // A root that is not there is passed over in silence, as every target is. A walk that breaks off
  // (a link that leads to itself does that) has left directories out, and that must be known.
  if (result == -1 && keldoindexutils::stat::DoesDirExist(directory)) {
    syslog(LOG_ERR, "%s:%d [Error] walk of %s ended early, %s", "keldothumb", kWalkEndedLine,
           directory.c_str(), std::strerror(walk_error));
  }
}

}  // namespace keldo
