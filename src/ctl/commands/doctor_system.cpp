// Everything that thumbnails need other than programs.
#include <dlfcn.h>
#include <libraw/libraw.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "ctl/commands/doctor.h"
#include "index/index_database.h"
#include "platform/conf_parser.h"
#include "platform/index_ipc.h"
#include "thumbs/directories.h"

namespace keldo::ctl {
namespace {

using Level = CheckResult::Level;

CheckResult CheckUser() {
  constexpr const char* kName = "user";
  if (::geteuid() == 0) return {kName, Level::kOk, "root", {}};
  return {kName, Level::kNote, "not root",
          "thumbnails are made where you may write; only root may use the work queue and the "
          "counters, and set masks"};
}

CheckResult CheckHeif(const std::string& library) {
  constexpr const char* kName = "libheif";
  void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return {kName, Level::kWarning, library + " cannot be loaded",
            "install libheif1; without it the size of HEIC photos is unknown"};
  }
  // Never unloaded: the library does not support that.
  const auto version = reinterpret_cast<const char* (*)()>(::dlsym(handle, "heif_get_version"));
  return {
      kName, Level::kOk, version == nullptr ? library : std::string("version ") + version(), {}};
}

// "KELDOPHOTO_THUMB_XL.jpg" and "KELDOPHOTO:THUMB_XL.jpg" give "XL".
std::string KindOf(const std::string& filename) {
  constexpr std::string_view kStart = "KELDOPHOTO_THUMB_";
  constexpr std::string_view kEnd = ".jpg";
  if (filename.size() <= kStart.size() + kEnd.size() || !filename.ends_with(kEnd)) return "?";
  return filename.substr(kStart.size(), filename.size() - kStart.size() - kEnd.size());
}

CheckResult CheckProfile(const std::string& path) {
  constexpr const char* kName = "profile file";
  constexpr const char* kAdvice = "reinstall keldothumb, or name another file with --profile";
  if (::access(path.c_str(), R_OK) != 0) {
    return {kName, Level::kProblem, ShownName(path) + ": " + std::strerror(errno), kAdvice};
  }
  KELDOUtils::ConfParser parser;
  std::string kinds;
  if (parser.loadFromFile(path.c_str()) != 0) {
    for (const std::string& section : parser.enumSections()) {
      if (!section.starts_with("thumb")) continue;
      kinds += (kinds.empty() ? "" : ", ") + KindOf(parser.getString(section, "filename", ""));
    }
  }
  if (kinds.empty()) {
    return {kName, Level::kProblem, ShownName(path) + ": defines no thumbnails", kAdvice};
  }
  return {kName, Level::kOk, ShownName(path) + ": " + ShownName(kinds), {}};
}

// For a file that is replaced as a whole: its directory has to be writable, too.
bool CanReplace(const std::string& path) {
  const std::string directory = std::filesystem::path(path).parent_path().native();
  if (::access(directory.c_str(), W_OK | X_OK) != 0) return false;
  return ::access(path.c_str(), W_OK) == 0 || errno == ENOENT;
}

CheckResult CheckWritable(const char* name, const std::string& path, const char* advice) {
  if (CanReplace(path)) return {name, Level::kOk, ShownName(path) + " can be written", {}};
  return {name, Level::kWarning, ShownName(path) + ": " + std::strerror(errno), advice};
}

CheckResult CheckIndex(const std::string& path) {
  constexpr const char* kName = "index";
  const auto opened = index::IndexDatabase::Open(path);
  if (opened.missing) {
    return {kName, Level::kNote, "none; all kinds are wanted everywhere",
            "'keldothumbctl index mask' creates one"};
  }
  if (!opened.database) {
    return {kName, Level::kWarning, ShownName(path) + ": " + opened.problem,
            "the masks set with 'keldothumbctl index mask' have no effect; remove the file and set "
            "them again"};
  }
  if (!CanReplace(path)) {
    return {kName, Level::kNote, ShownName(path) + " can be read but not written",
            "only root may change it"};
  }
  return {kName, Level::kOk, ShownName(path), {}};
}

CheckResult CheckDaemon(const std::string& socket) {
  constexpr const char* kName = "daemon";
  constexpr int kNoFlags = -1;
  constexpr int kSeconds = 5;
  Json::Value packet(Json::objectValue);
  packet["command"] = "IS_CONVERT_PHOTO";
  if (keldoindexutils::ipc::AutoSendRecvPacket(socket.c_str(), kNoFlags, packet, kSeconds) < 0) {
    return {kName, Level::kNote, "no answer",
            "not required; start keldoindexplugind to record finished photos in the index"};
  }
  const Json::Value result = packet.isObject() ? packet["result"] : Json::Value();
  const bool is_off = result.isBool() && !result.asBool();
  return {kName, Level::kOk, is_off ? "answers; conversion of photos is off" : "answers", {}};
}

CheckResult CheckWatches(const std::string& path) {
  constexpr const char* kName = "inotify watches";
  constexpr long kEnough = 16'384;
  std::ifstream file(path);
  long limit = 0;
  if (!(file >> limit)) return {kName, Level::kNote, "the limit cannot be read", {}};
  const std::string text = Grouped(limit) + " per user";
  if (limit >= kEnough) return {kName, Level::kOk, text, {}};
  return {
      kName, Level::kWarning, text,
      "'keldothumbctl watch' needs one for every folder: raise fs.inotify.max_user_watches with "
      "sysctl"};
}

CheckResult CheckOpenFiles() {
  constexpr const char* kName = "open files";
  constexpr rlim_t kEnough = 1024;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return {kName, Level::kNote, "limit unknown", {}};
  if (limit.rlim_cur == RLIM_INFINITY) return {kName, Level::kOk, "no limit", {}};
  const std::string text = "up to " + Grouped(static_cast<long>(limit.rlim_cur));
  if (limit.rlim_cur >= kEnough) return {kName, Level::kOk, text, {}};
  return {kName, Level::kWarning, text, "raise the limit with 'ulimit -n 1024'"};
}

CheckResult CheckTemporarySpace() {
  constexpr const char* kName = "temporary files";
  std::error_code error;
  const std::string directory = std::filesystem::temp_directory_path(error).native();
  if (!error && HasDiskSpace(directory)) {
    return {kName, Level::kOk, "at least 1 GiB is free in " + ShownName(directory), {}};
  }
  return {
      kName, Level::kWarning,
      error ? error.message() : "less than 1 GiB is free in " + ShownName(directory),
      "free some space there, or set TMPDIR: large photos are kept there while they are converted"};
}

}  // namespace

std::vector<CheckResult> CheckSystem(const DoctorPaths& paths) {
  constexpr const char* kAsRoot = "run as root, or do without it";
  return {CheckProfile(paths.profile),
          {"LibRaw", Level::kOk, std::string("version ") + libraw_version(), {}},
          CheckHeif(paths.heif_library),
          CheckUser(),
          CheckWritable("work queue", paths.queue, kAsRoot),
          CheckWritable("counters", paths.progress, kAsRoot),
          CheckWritable("pid file", paths.pid_file, kAsRoot),
          CheckIndex(paths.database),
          CheckDaemon(paths.daemon_socket),
          CheckWatches(paths.watch_limit),
          CheckOpenFiles(),
          CheckTemporarySpace()};
}

}  // namespace keldo::ctl
