// A temporary directory for a test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace keldo::testing {

/// An empty directory below the system's directory for temporary files. It is removed at the end
/// with everything in it.
class TempDir {
 public:
  TempDir() : path_((std::filesystem::temp_directory_path() / "keldotest-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + path_);
  }
  ~TempDir() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    if (error) std::cerr << "cannot remove " << path_ << ": " << error.message() << '\n';
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// Absolute, without a trailing slash.
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace keldo::testing
