#include "ctl/watch/watch_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "ctl/commands/command.h"

namespace keldo::ctl {
namespace {

constexpr std::chrono::seconds kLongTime{30};
constexpr std::chrono::milliseconds kLookEvery{5};

constexpr const char* kProfile =
    "[thumb_xl]\nsize=1280\nquality=90\nfilename=KELDOPHOTO_THUMB_XL.jpg\nphase=0\n"
    "[thumb_s]\nsize=120\nquality=90\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=2\n";

// Its files are next to it: "keldothumb.runs" lists the arguments, each ended by a NUL.
constexpr const char* kStandIn = R"(#!/bin/sh
printf '%s\0' "$2" >> "$0.runs"
while [ -e "$0.hold" ]; do sleep 0.01; done
for photo in "$2"/*.jpg; do
  [ -f "$photo" ] || continue
  ea="$2/@eaDir/${photo##*/}"
  mkdir -p "$ea"
  rm -f "$ea"/*.fail
  [ "$photo" -nt "$ea/KELDOPHOTO_THUMB_XL.jpg" ] && rm -f "$ea"/*.jpg
  read -r text < "$photo"
  if [ "$text" = broken ]; then
    : > "$ea/KELDOPHOTO_THUMB_XL.fail"
    : > "$ea/KELDOPHOTO_THUMB_S.fail"
  elif [ "$text" = hopeless ]; then
    :
  elif [ -e "$ea/KELDOPHOTO_THUMB_XL.jpg" ]; then
    echo small > "$ea/KELDOPHOTO_THUMB_S.jpg"
  else
    echo large > "$ea/KELDOPHOTO_THUMB_XL.jpg"
  fi
done
)";

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  ASSERT_TRUE(file) << path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

WatchTest::WatchTest() {
  std::filesystem::create_directory(tree_);
  WriteFile(program_, kStandIn);
  WriteFile(profile_, kProfile);
  if (chmod(program_.c_str(), 0755) != 0) ADD_FAILURE() << program_;
}

WatchTest::~WatchTest() {
  if (pid_ > 0 && Stop(SIGKILL) != -1) ADD_FAILURE() << "the watch had ended before";
}

WatchSettings WatchTest::Settings() const {
  WatchSettings settings;
  settings.roots = {tree_};
  settings.quiet = std::chrono::milliseconds(50);
  settings.rescan = std::chrono::milliseconds(200);
  settings.keldothumb = program_;
  settings.profile_path = profile_;
  settings.queue_path = temp_.path() + "/queue";
  return settings;
}

int WatchTest::RunWatch(const std::vector<std::string>& options) const {
  const int output = open(output_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (output < 0 || dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0) return 99;
  std::vector<std::string> arguments{"watch"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(tree_);
  if (!other_tree_.empty()) arguments.push_back(other_tree_);
  Environment environment;
  environment.keldothumb = program_;
  environment.profile_path = profile_;
  std::ofstream out(output_, std::ios::app);
  out << std::unitbuf;
  return RunCommandLine(arguments, environment, out, out);
}

void WatchTest::Start(const std::vector<std::string>& options) {
  pid_ = fork();
  ASSERT_GE(pid_, 0);
  if (pid_ == 0) _exit(RunWatch(options));
}

int WatchTest::Stop(int signal) {
  kill(pid_, signal);
  int status = -1;
  if (!Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void WatchTest::Write(const std::string& name, const std::string& text) const {
  std::filesystem::create_directories(std::filesystem::path(At(name)).parent_path());
  WriteFile(At(name), text + "\n");
}

void WatchTest::Hold() const {
  WriteFile(program_ + ".hold", "");
}

void WatchTest::LetGo() const {
  std::filesystem::remove(program_ + ".hold");
}

bool WatchTest::HasThumbnail(const std::string& directory, const std::string& photo,
                             const std::string& kind) const {
  const std::string folder = directory.empty() ? tree_ : At(directory);
  return std::filesystem::exists(folder + "/@eaDir/" + photo + "/KELDOPHOTO_THUMB_" + kind);
}

std::vector<std::string> WatchTest::Runs() const {
  std::vector<std::string> runs;
  const std::string text = ReadFile(program_ + ".runs");
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = text.find('\0', from);
    const std::string path = text.substr(from, end - from);
    runs.push_back(path == tree_ ? "" : path.substr(tree_.size() + 1));
    if (end == std::string::npos) break;
    from = end + 1;
  }
  return runs;
}

std::string WatchTest::Output() const {
  return ReadFile(output_);
}

bool WatchTest::Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kLongTime;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kLookEvery);
  }
  return true;
}

bool WatchTest::Says(const std::string& text) const {
  return Eventually([&] { return Output().find(text) != std::string::npos; });
}

}  // namespace keldo::ctl
