// Stands in for the image converter, djpeg, dcraw and compare. It records how it was started, then
// carries out a small script. It is installed under the name of the program that it replaces, and
// reads the script of that name.
//
// A script has one step per line, carried out in order:
//   when ARG            the steps up to the next "when" or "always" need the argument ARG
//   always              ends such a condition
//   outputs KIND [WxH]  writes every file that the command line names as an output. KIND: jpeg (of
//                       that size), halves (a jpeg, with a pause half-way), rubbish, byte, empty
//   icc TEXT            writes TEXT to the file after "-icc"
//   stdout TEXT         prints TEXT and a newline; stderr likewise
//   stdout-file PATH    prints the file
//   list PATH           prints the names in a directory
//   append PATH         appends 1 MiB to the file; grow PATH appends one byte
//   rewrite PATH        inverts the file's bytes in place
//   remove PATH         removes the file
//   sleep MS            waits; hang waits forever
//   grandchild          starts a child that hangs in the same process group
//   exit STATUS         ends at once
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "standins/invocation.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

constexpr std::string_view kDirectory = "/standins/";
constexpr std::size_t kGrowth = std::size_t{1} << 20;

void WriteFile(const std::string& path, std::string_view content, std::ios::openmode mode) {
  std::ofstream file(path, std::ios::binary | mode);
  file << content << std::flush;
  if (!file) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void Sleep(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

class Player {
 public:
  Player(std::string name, std::vector<std::string> arguments)
      : name_(std::move(name)), arguments_(std::move(arguments)) {}

  /// Carries out the script; returns the exit status.
  int Play(std::istream& script) {
    bool active = true;
    for (std::string line; std::getline(script, line);) {
      const std::size_t blank = line.find(' ');
      const std::string verb = line.substr(0, blank);
      const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
      if (verb == "always") active = true;
      if (verb == "when") active = HasArgument(rest);
      if (verb == "always" || verb == "when" || verb.empty() || !active) continue;
      if (verb == "exit") return std::stoi(rest);
      Step(verb, rest);
    }
    return 0;
  }

 private:
  void Step(const std::string& verb, const std::string& rest) {
    if (verb == "outputs") {
      WriteOutputs(rest);
    } else if (verb == "icc") {
      WriteFile(ArgumentsAfter("-icc").at(0), rest, std::ios::trunc);
    } else if (verb == "sleep") {
      Sleep(std::stoi(rest));
    } else if (verb == "hang") {
      for (;;)
        ::pause();
    } else if (verb == "grandchild") {
      StartGrandchild();
    } else if (!Print(verb, rest) && !ChangeFile(verb, rest)) {
      throw std::runtime_error("no such step: " + verb);
    }
  }

  static bool Print(const std::string& verb, const std::string& rest) {
    if (verb == "stdout") {
      std::cout << rest << '\n';
    } else if (verb == "stderr") {
      std::cerr << rest << '\n';
    } else if (verb == "stdout-file") {
      std::cout << ReadFile(rest);
    } else if (verb == "list") {
      for (const auto& entry : std::filesystem::directory_iterator(rest)) {
        std::cout << entry.path().filename().string() << '\n';
      }
    } else {
      return false;
    }
    std::cout << std::flush;
    return true;
  }

  static bool ChangeFile(const std::string& verb, const std::string& path) {
    if (verb == "append") {
      WriteFile(path, std::string(kGrowth, 'x'), std::ios::app);
    } else if (verb == "grow") {
      WriteFile(path, "x", std::ios::app);
    } else if (verb == "rewrite") {
      std::string content = ReadFile(path);
      for (char& byte : content)
        byte = static_cast<char>(~byte);
      WriteFile(path, content, std::ios::in | std::ios::out);
    } else if (verb == "remove") {
      std::filesystem::remove(path);
    } else {
      return false;
    }
    return true;
  }

  [[nodiscard]] bool HasArgument(const std::string& wanted) const {
    return std::find(arguments_.begin(), arguments_.end(), wanted) != arguments_.end();
  }

  [[nodiscard]] std::vector<std::string> ArgumentsAfter(const std::string& option) const {
    std::vector<std::string> values;
    for (std::size_t i = 0; i + 1 < arguments_.size(); ++i) {
      if (arguments_[i] == option) values.push_back(arguments_[i + 1]);
    }
    return values;
  }

  void WriteOutputs(const std::string& what) const {
    std::vector<std::string> paths = ArgumentsAfter("-outfile");
    if (paths.empty()) {
      paths = ArgumentsAfter("-write");
      paths.push_back(arguments_.back());
    }
    std::istringstream words(what);
    std::string kind;
    int width = 40;
    int height = 30;
    char by = 'x';
    words >> kind;
    if (!words.eof()) words >> width >> by >> height;
    for (const std::string& path : paths)
      WriteOutput(path, kind, width, height);
  }

  static void WriteOutput(const std::string& path, const std::string& kind, int width, int height) {
    std::string content = EncodeJpeg(FourCorners(width, height));
    if (kind == "rubbish") content = "not an image";
    if (kind == "byte") content = "x";
    if (kind == "empty") content.clear();
    if (kind == "halves") {
      const std::size_t half = content.size() / 2;
      WriteFile(path, content.substr(0, half), std::ios::trunc);
      Sleep(3);
      WriteFile(path, content.substr(half), std::ios::app);
    } else {
      WriteFile(path, content, std::ios::trunc);
    }
  }

  static void StartGrandchild() {
    const pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child != 0) return;
    ::prctl(PR_SET_NAME, "grandchild");  // So that nobody finds it by the name of its parent.
    for (;;)
      ::pause();
  }

  std::string name_;
  std::vector<std::string> arguments_;
};

int Main(std::vector<std::string> arguments) {
  const std::string name = std::filesystem::path(arguments.at(0)).filename();
  const std::string directory(kDirectory);
  const char* package = std::getenv("KELDO_CODEC_PKG_NAME");
  Invocation invocation{name, std::filesystem::current_path(), std::nullopt, arguments};
  if (package != nullptr) invocation.codec_package = package;
  AppendInvocation(directory + "record", invocation);

  std::ifstream script(directory + name + ".script");
  if (!script) throw std::runtime_error("no script for " + name);
  return Player(name, std::move(arguments)).Play(script);
}

}  // namespace
}  // namespace keldo::testing

int main(int argc, char** argv) {
  try {
    return keldo::testing::Main({argv, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "stand-in: " << error.what() << '\n';
    return 99;
  }
}
