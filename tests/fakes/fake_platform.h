// The fake platform's one record: what the program under test asked of the platform, and what the
// platform answers.
//
// Operations on plain files work on real files, so that a test prepares and inspects them as it
// likes. The system's fixed paths (below /var/spool, /var/run, /var/lib/keldoindex, /var/packages,
// /usr/keldo, and the daemon's socket) lie in a sandbox of the test's own: see Real(). Everything
// else answers from the fields below.
#pragma once

#include <json/value.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/index_ipc.h"
#include "support/temp_dir.h"

namespace keldo::testing {

/// A program started through KLIBCPopen; `argv[0]` is the path.
struct PopenCall {
  std::string mode;
  std::vector<std::string> argv;
};

/// A packet that went to the plug-in daemon.
struct PacketRequest {
  std::string socket_path;
  int flags = 0;
  Json::Value value;
  int timeout_seconds = 0;
};

/// What KELDOIDX_IndexConvertAdd was given.
struct ConvertReport {
  keldoindexutils::MediaInfo source;
  keldoindexutils::MediaInfo converted;
  Json::Value extra;
};

/// The error that the platform keeps after a failed call.
struct KeptError {
  int code = 0;
  std::string file;
  int line = 0;
};

/// File system type codes of the fake.
inline constexpr int kLocalFs = 1;
inline constexpr int kUnsuitableFs = 12;
inline constexpr int kRemoteFs = 100;
inline constexpr int kImageFs = 101;

class FakePlatform {
 public:
  /// Back to the start: nothing recorded, nothing scripted, an empty sandbox and an empty log.
  void Reset();

  // ---- What was asked ----

  /// Every call in order, as "KLIBCKill(convert-thumb, 0)".
  std::vector<std::string> calls;
  /// Every ProcessRunner::run: the program, then its argument vector.
  std::vector<std::vector<std::string>> runs;
  /// Every KLIBCPopen.
  std::vector<PopenCall> popens;
  /// Every AutoSendRecvPacket, the value as it was sent.
  std::vector<PacketRequest> packets;
  /// Every KELDOIDX_IndexConvertAdd.
  std::vector<ConvertReport> convert_reports;

  /// The recorded calls of these operations, in order.
  [[nodiscard]] std::vector<std::string> CallsOf(const std::set<std::string>& operations) const;
  /// Streams of KLIBCPopen that were not closed with KLIBCPclose yet.
  [[nodiscard]] std::size_t OpenStreams() const { return streams_.size(); }

  // ---- What fails ----
  //
  // Platform operations, and the system calls access, chmod, fopen, glob, mkdir, open, opendir,
  // rename and unlink of the program under test, which are recorded on fixed paths only.

  /// Makes the n-th call from now of an operation fail once (1: the next one), with this errno. It
  /// then does nothing and returns its failure value.
  void FailCall(const std::string& operation, int n = 1, int error = EIO);
  /// Makes every call of an operation fail from now on.
  void FailAlways(const std::string& operation, int error = EIO);

  // ---- What is answered ----

  /// The exit of a program: receives the program, then its argument vector, and may create the
  /// files that the program would. Without it every run returns 0.
  std::function<int(const std::vector<std::string>&)> on_run;
  /// The output of a program started by KLIBCPopen; no value when it cannot be started. Without it
  /// the output is empty.
  std::function<std::optional<std::string>(const PopenCall&)> on_popen;
  /// Called by WaitForEvents: what happens while the program sleeps, for a child's output say.
  std::function<void()> on_wait;
  /// KLIBCPclose's result for a stream of KLIBCPopen.
  int popen_status = 0;
  /// KLIBCKill's result.
  int killed_processes = 0;

  /// The daemon's reply; no value when nobody listens. Without it nobody does.
  std::function<std::optional<Json::Value>(const Json::Value&)> on_packet;
  /// Thumbnail masks by path and _tag_THUMB_TYPE_; `default_mask` where none is set.
  std::map<std::pair<std::string, int>, int> dir_masks;
  std::map<std::pair<std::string, int>, int> file_masks;
  int default_mask = 63;
  /// KELDOIDX_IsVideoNeedConvert by path, else 0.
  std::map<std::string, int> video_need_convert;
  /// KELDOIDX_GetMediaInfo by path; a path without a record cannot be read as an image.
  std::map<std::string, keldoindexutils::MediaInfo> media_info;
  /// KELDOIndexImgResGet by path; a path without an entry is not an image.
  std::map<std::string, std::pair<unsigned, unsigned>> image_sizes;

  /// Free bytes by path; `default_free_bytes` where none is set.
  std::map<std::string, std::uint64_t> free_bytes;
  std::uint64_t default_free_bytes = std::uint64_t{1} << 40;
  /// The machine's memory; no value when it is unknown.
  std::optional<long> total_memory_kib = 4L << 20;
  /// File system types by path, else kLocalFs. What the two class tests say of a type, else 0.
  std::map<std::string, int> fs_types;
  std::map<int, int> remote_fs_answers{{kRemoteFs, 1}};
  std::map<int, int> image_fs_answers{{kImageFs, 1}};
  /// Directory names that users do not see.
  std::set<std::string> hidden_dirs{"@eaDir", "@tmp"};
  /// The platform's kept error.
  KeptError kept_error;
  /// Makes KLIBCFileGetLine find a line that only begins with the key, as well as an equal one.
  bool get_line_finds_longer_lines = false;
  /// Called by LetTerminationIn: what a SIGTERM that came meanwhile would do.
  std::function<void()> on_let_termination_in;

  // ---- The sandbox ----

  /// True for a path that lies in the sandbox.
  [[nodiscard]] static bool IsFixedPath(std::string_view path);
  /// Where a path really lies: fixed paths of the system in the sandbox, every other one as it is.
  [[nodiscard]] std::string Real(const std::string& path) const;
  /// The sandbox's own root, which stands for "/"; made when it is first asked for.
  [[nodiscard]] const std::string& sandbox() const;
  /// Writes a fixed file (a queue, a progress file, a pid file) of these lines.
  void WriteLines(const std::string& path, const std::vector<std::string>& lines) const;
  /// The lines of a fixed file; none when it does not exist.
  [[nodiscard]] std::vector<std::string> ReadLines(const std::string& path) const;

  // ---- For the operations themselves ----

  /// Records a call; true when it is scripted to fail (errno is then set).
  template <typename... Args>
  bool Enter(const std::string& operation, const Args&... args);
  /// True when this call of an operation is scripted to fail (errno is then set).
  bool ShallFail(const std::string& operation);
  FILE* OpenStream(const std::string& content);
  bool CloseStream(FILE* stream);

 private:
  struct Failure {
    int calls_left;  // Kept at 0 by a failure that stays.
    bool once;
    int error;
  };

  std::multimap<std::string, Failure> failures_;
  std::set<FILE*> streams_;
  mutable std::unique_ptr<TempDir> sandbox_;
};

/// The fake of this process. Never destroyed, since calls at the very end of the process (the
/// coverage counters' own files) still pass through it.
FakePlatform& fake();

namespace internal {

inline void Show(std::ostream& out, const char* text) {
  out << (text == nullptr ? "null" : text);
}
inline void Show(std::ostream& out, const std::string& text) {
  out << text;
}
inline void Show(std::ostream& out, bool value) {
  out << (value ? "true" : "false");
}
template <typename T>
void Show(std::ostream& out, const T& value) {
  out << value;
}

}  // namespace internal

template <typename... Args>
bool FakePlatform::Enter(const std::string& operation, const Args&... args) {
  std::ostringstream call;
  const char* separator = "";
  call << operation << '(';
  [[maybe_unused]] const auto add = [&](const auto& argument) {
    call << separator;
    internal::Show(call, argument);
    separator = ", ";
  };
  (add(args), ...);
  call << ')';
  calls.push_back(call.str());
  return ShallFail(operation);
}

}  // namespace keldo::testing
