// Access to the sandbox's files from outside.
#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "e2e/sandbox.h"
#include "support/images.h"
#include "util/path.h"

namespace keldo::testing {

namespace fs = std::filesystem;

std::string Sandbox::Outside(const std::string& inside) const {
  const std::string run = "/var/run/";
  if (inside.starts_with(run)) return scratch_.path() + "/run/" + inside.substr(run.size());
  return scratch_.path() + inside;
}

void Sandbox::Write(const std::string& inside, const std::string& content) const {
  const fs::path path = Outside(inside);
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content << std::flush;
  if (!file) throw std::runtime_error("cannot write " + inside);
}

std::string Sandbox::Read(const std::string& inside) const {
  std::ifstream file(Outside(inside), std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + inside);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool Sandbox::Exists(const std::string& inside) const {
  return fs::exists(fs::symlink_status(Outside(inside)));
}

void Sandbox::MakeDirectory(const std::string& inside) const {
  fs::create_directories(Outside(inside));
}

void Sandbox::Remove(const std::string& inside) const {
  fs::remove_all(Outside(inside));
}

struct stat Sandbox::Status(const std::string& inside) const {
  struct stat status {};
  if (::stat(Outside(inside).c_str(), &status) != 0) throw std::runtime_error("no " + inside);
  return status;
}

void Sandbox::SetTime(const std::string& inside, std::time_t modified) const {
  const timespec times[] = {{modified, 0}, {modified, 0}};
  if (::utimensat(AT_FDCWD, Outside(inside).c_str(), times, 0) != 0) {
    throw std::runtime_error("cannot set the time of " + inside);
  }
}

std::vector<std::string> Sandbox::List(const std::string& inside) const {
  std::vector<std::string> names;
  if (!Exists(inside)) return names;
  for (const auto& entry : fs::directory_iterator(Outside(inside))) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Sandbox::AddPhoto(const std::string& name, const std::string& content) const {
  std::string path = JoinPath(kPhotoDir, name);
  Write(path, content);
  SetTime(path, kPhotoTime);
  return path;
}

std::string Sandbox::AddPhoto(const std::string& name) const {
  return AddPhoto(name, EncodeJpeg(FourCorners(64, 48)));
}

}  // namespace keldo::testing
