// A fixture for tests with files in a temporary directory.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "support/temp_dir.h"

namespace keldo::testing {

class FileTest : public ::testing::Test {
 protected:
  /// The path of `name` in the directory.
  [[nodiscard]] std::string In(const std::string& name) const { return dir_.path() + "/" + name; }

  /// Creates or replaces a file in the directory; returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(In(name), std::ios::binary) << content;
    return In(name);
  }

  /// The content of a file; nothing if it cannot be read.
  [[nodiscard]] static std::string Read(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  TempDir dir_;
};

}  // namespace keldo::testing
