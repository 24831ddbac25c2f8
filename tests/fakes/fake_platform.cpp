#include "fakes/fake_platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "fakes/syslog_capture.h"
#include "util/handles.h"

namespace keldo::testing {
namespace {

constexpr std::array<std::string_view, 6> kFixedPlaces = {
    "/var/spool/",    "/var/run/",   "/var/lib/keldoindex/",
    "/var/packages/", "/usr/keldo/", "/tmp/keldoindexplugind_sock"};

constexpr std::array<const char*, 6> kSandboxDirs = {
    "/var/spool", "/var/run",       "/var/lib/keldoindex",
    "/tmp",       "/usr/keldo/bin", "/var/packages/Vantrel/target/pack"};

}  // namespace

FakePlatform& fake() {
  static FakePlatform* const platform = std::make_unique<FakePlatform>().release();
  return *platform;
}

void FakePlatform::Reset() {
  for (FILE* stream : streams_)
    static_cast<void>(std::fclose(stream));
  *this = FakePlatform();
  ClearSyslog();
}

std::vector<std::string> FakePlatform::CallsOf(const std::set<std::string>& operations) const {
  std::vector<std::string> found;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(found), [&](const std::string& call) {
    return operations.count(call.substr(0, call.find('('))) != 0;
  });
  return found;
}

void FakePlatform::FailCall(const std::string& operation, int n, int error) {
  failures_.insert({operation, {n - 1, true, error}});
}

void FakePlatform::FailAlways(const std::string& operation, int error) {
  failures_.insert({operation, {0, false, error}});
}

bool FakePlatform::ShallFail(const std::string& operation) {
  bool fails = false;
  const auto [begin, end] = failures_.equal_range(operation);
  for (auto it = begin; it != end;) {
    const bool due = it->second.calls_left == 0;
    if (due) {
      errno = it->second.error;
      fails = true;
    } else {
      --it->second.calls_left;
    }
    it = due && it->second.once ? failures_.erase(it) : std::next(it);
  }
  return fails;
}

const std::string& FakePlatform::sandbox() const {
  if (!sandbox_) {
    sandbox_ = std::make_unique<TempDir>();
    for (const char* directory : kSandboxDirs) {
      std::filesystem::create_directories(sandbox_->path() + directory);
    }
  }
  return sandbox_->path();
}

bool FakePlatform::IsFixedPath(std::string_view path) {
  return std::any_of(kFixedPlaces.begin(), kFixedPlaces.end(),
                     [&](std::string_view place) { return path.starts_with(place); });
}

std::string FakePlatform::Real(const std::string& path) const {
  return IsFixedPath(path) ? sandbox() + path : path;
}

void FakePlatform::WriteLines(const std::string& path,
                              const std::vector<std::string>& lines) const {
  std::ofstream file(Real(path), std::ios::binary | std::ios::trunc);
  for (const std::string& line : lines)
    file << line << '\n';
  if (!file.flush()) throw std::runtime_error("cannot write " + Real(path));
}

std::vector<std::string> FakePlatform::ReadLines(const std::string& path) const {
  std::ifstream file(Real(path), std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);)
    lines.push_back(line);
  return lines;
}

FILE* FakePlatform::OpenStream(const std::string& content) {
  UniqueFd memory(memfd_create("fake stream", MFD_CLOEXEC));
  const auto size = static_cast<ssize_t>(content.size());
  if (!memory.valid() || write(memory.get(), content.data(), content.size()) != size ||
      lseek(memory.get(), 0, SEEK_SET) != 0) {
    throw std::runtime_error("cannot make a stream");
  }
  UniqueFile stream(fdopen(memory.get(), "r"));
  if (!stream) throw std::runtime_error("cannot make a stream");
  static_cast<void>(memory.release());
  streams_.insert(stream.get());
  return stream.release();
}

bool FakePlatform::CloseStream(FILE* stream) {
  if (streams_.erase(stream) == 0) return false;
  static_cast<void>(std::fclose(stream));
  return true;
}

}  // namespace keldo::testing
