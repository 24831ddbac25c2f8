#include "e2e/sandbox.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kConverter = "/usr/keldo/bin/convert-thumb";
constexpr const char* kCodecPack = "/var/packages/Vantrel/target/pack";
constexpr const char* kStandIn = "/standins/standin";
constexpr const char* kOurConverter = "/program/convert-thumb";
constexpr const char* kMemoryFile = "/harness/meminfo";

// Directories that are empty and writable at the start; /usr/keldo comes after /usr's own entries.
constexpr const char* kWritable[] = {"/volume1",  "/conf",         "/run",       "/var/spool",
                                     "/var/lib",  "/var/packages", "/usr/keldo", "/tmp",
                                     "/standins", "/harness"};

void Append(std::vector<std::string>& command, std::initializer_list<std::string> words) {
  command.insert(command.end(), words);
}

// Shows a part of the host: a link as the same link, everything else read-only.
void AppendHostPath(std::vector<std::string>& command, const fs::path& path) {
  if (fs::is_symlink(path)) {
    Append(command, {"--symlink", fs::read_symlink(path), path});
  } else if (fs::exists(path)) {
    Append(command, {"--ro-bind", path, path});
  }
}

// The host's programs and libraries. /usr is assembled from its entries, since /usr/keldo must be
// ours whether the host has one or not.
void AppendHostTree(std::vector<std::string>& command) {
  for (const auto& entry : fs::directory_iterator("/usr")) {
    if (entry.path().filename() != "keldo") AppendHostPath(command, entry.path());
  }
  for (const char* path : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", "/etc"}) {
    AppendHostPath(command, path);
  }
}

// A stand-in is mounted over the file to which a tool's name finally resolves.
void AppendStandIn(std::vector<std::string>& command, const char* tool) {
  Append(command, {"--ro-bind", KELDO_STANDIN, fs::canonical(tool)});
}

void ReplaceLink(const fs::path& link, const fs::path& target) {
  fs::create_directories(link.parent_path());
  fs::remove(link);
  fs::create_symlink(target, link);
}

std::vector<std::string> OnPhotos() {
  return {"keldothumb", "/conf/profile", kPhotoDir};
}

std::string MakeWritableDirectories(const std::string& scratch) {
  for (const char* directory : kWritable)
    fs::create_directories(scratch + directory);
  return scratch;
}

}  // namespace

bool UsesImageMagick() {
  const char* converter = std::getenv("KELDO_E2E_CONVERTER");
  return converter != nullptr && std::string_view(converter) == "imagemagick";
}

Sandbox::Sandbox() : log_(MakeWritableDirectories(scratch_.path()) + "/harness/log") {
  UseStandIns();
  Script("convert-thumb", "outputs jpeg\n");
  Script("convert", "outputs jpeg\n");
  Script("djpeg", "outputs rubbish\n");
  Script("dcraw", "exit 1\n");
  Script("compare", "exit 2\n");
  UseProfile(kSixKinds);
  fs::create_directories(Outside(kPhotoDir));
}

RunResult Sandbox::Run(const std::vector<std::string>& arguments) {
  return Running(*this, arguments).Finish();
}

RunResult Sandbox::RunOn(const std::vector<std::string>& targets) {
  std::vector<std::string> arguments = {"keldothumb", "/conf/profile"};
  arguments.insert(arguments.end(), targets.begin(), targets.end());
  return Run(arguments);
}

std::unique_ptr<Running> Sandbox::Start() {
  return std::make_unique<Running>(*this, OnPhotos());
}

RunResult Sandbox::RunInterrupted(SignalAt signal_at) {
  return Running(*this, OnPhotos(), signal_at).Finish();
}

void Sandbox::Script(const std::string& name, const std::string& script) const {
  Write("/standins/" + name + ".script", script);
}

void Sandbox::UseRealTools() {
  UseRealToolsButDcraw();
  real_dcraw_ = true;
}

void Sandbox::UseRealToolsButDcraw() {
  ReplaceLink(Outside(kConverter), UsesImageMagick() ? "/usr/bin/convert" : kOurConverter);
  real_tools_ = true;
  real_dcraw_ = false;
}

void Sandbox::UseStandIns() {
  ReplaceLink(Outside(kConverter), kStandIn);
  real_tools_ = false;
  real_dcraw_ = false;
}

void Sandbox::InstallCodecPackage() const {
  const std::string pack = kCodecPack;
  Write(pack + "/HAS_HEVC", "");
  ReplaceLink(Outside(pack + "/usr/bin/convert"), kStandIn);
}

void Sandbox::SetEnvironment(const std::string& name, const std::string& value) {
  environment_[name] = value;
}

void Sandbox::SetTotalMemory(long kib) {
  Write(kMemoryFile, "MemTotal:       " + std::to_string(kib) + " kB\n");
  Append(mounts_, {"--ro-bind", Outside(kMemoryFile), "/proc/meminfo"});
}

void Sandbox::StartDaemon(ScriptedDaemon::Answer answer) {
  const std::string socket = Outside("/tmp/keldoindexplugind_sock");
  daemon_.reset();
  fs::remove(socket);
  daemon_ = std::make_unique<ScriptedDaemon>(socket, std::move(answer));
}

void Sandbox::MountReadOnly(const std::string& inside) {
  Append(mounts_, {"--ro-bind", Outside(inside), inside});
}

void Sandbox::MountMemory(const std::string& inside, std::size_t bytes) {
  Append(mounts_, {"--size", std::to_string(bytes), "--tmpfs", inside});
  kept_.push_back(inside);
}

std::string Sandbox::KeptDirectory(const std::string& inside) {
  return "/harness/kept" + inside;
}

void Sandbox::MountOver(const std::string& from, const std::string& to) {
  Append(mounts_, {"--ro-bind", Outside(from), to});
}

void Sandbox::PrepareKept() const {
  Remove("/harness/kept");
  for (const std::string& directory : kept_)
    MakeDirectory(KeptDirectory(directory));
}

void Sandbox::AppendTools(std::vector<std::string>& command) const {
  Append(command, {"--ro-bind", KELDO_STANDIN, kStandIn});
  if (!real_tools_) {
    AppendStandIn(command, "/usr/bin/djpeg");
    AppendStandIn(command, "/usr/bin/compare");
  }
  if (!real_dcraw_) AppendStandIn(command, "/usr/bin/dcraw");
}

std::vector<std::string> Sandbox::Command(const std::vector<std::string>& arguments,
                                          std::optional<SignalAt> signal_at) const {
  std::vector<std::string> command = {
      "bwrap",      "--unshare-pid", "--as-pid-1", "--unshare-net", "--die-with-parent",
      "--clearenv", "--setenv",      "PATH",       "/usr/bin",      "--setenv",
      "HOME",       "/tmp"};
  for (const auto& [name, value] : environment_)
    Append(command, {"--setenv", name, value});
  AppendHostTree(command);
  Append(command, {"--proc", "/proc", "--dev", "/dev", "--symlink", "/run", "/var/run"});
  Append(command, {"--symlink", "/harness/log", "/dev/log"});
  for (const char* path : kWritable)
    Append(command, {"--bind", scratch_.path() + path, path});
  AppendTools(command);
  command.insert(command.end(), mounts_.begin(), mounts_.end());
  Append(command, {"--ro-bind", KELDO_SANDBOX_INIT, "/sandbox_init"});
  Append(command, {"--ro-bind", KELDO_PROGRAM, "/program/keldothumb"});
  Append(command, {"--ro-bind", KELDO_CONVERTER_PROGRAM, kOurConverter});
  Append(command, {"--ro-bind", KELDO_CONVERTER_POLICY, "/share/convert-thumb"});
  Append(command, {"--ro-bind", KELDO_CONTROL_PROGRAM, "/program/keldothumbctl"});
  Append(command, {"--ro-bind", KELDO_DAEMON_PROGRAM, "/program/keldoindexplugind"});
#ifdef KELDO_COVERAGE_DIRECTORY
  Append(command, {"--bind", KELDO_COVERAGE_DIRECTORY, KELDO_COVERAGE_DIRECTORY});
#endif
  Append(command, {"--chdir", "/", "--", "/sandbox_init", "3"});
  if (signal_at) {
    Append(command,
           {"--signal-at", std::to_string(signal_at->signal), std::to_string(signal_at->call)});
  }
  for (const std::string& path : kept_)
    Append(command, {"--keep", path, KeptDirectory(path)});
  const std::string& program = arguments.at(0);
  Append(command, {"--", program.starts_with("/") ? program : "/program/" + program});
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace keldo::testing
