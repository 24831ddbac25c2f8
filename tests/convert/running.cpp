#include "convert/running.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "util/handles.h"

namespace keldo::testing {
namespace {

constexpr int kCannotStart = 127;

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> EnvironmentWith(const std::vector<std::string>& more) {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry)
    all.emplace_back(*entry);
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

// In the child.
[[noreturn]] void Start(char* const* arguments, char* const* environment, const char* directory,
                        int error) {
  if (*directory != '\0' && chdir(directory) != 0) _exit(kCannotStart);
  const int nothing = open("/dev/null", O_RDWR);
  dup2(nothing, 0);
  dup2(nothing, 1);
  dup2(error, 2);
  execvpe(arguments[0], arguments, environment);
  _exit(kCannotStart);
}

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count == 0) return text;
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category());
  }
}

}  // namespace

Ended RunProgram(const std::vector<std::string>& command,
                 const std::vector<std::string>& environment, const std::string& directory) {
  std::vector<std::string> words = {"timeout", "-k", "5", "60"};
  words.insert(words.end(), command.begin(), command.end());
  std::vector<std::string> variables = EnvironmentWith(environment);
  const std::vector<char*> arguments = Pointers(words);
  const std::vector<char*> entries = Pointers(variables);
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  const pid_t child = fork();
  if (child < 0) throw std::system_error(errno, std::generic_category());
  if (child == 0) Start(arguments.data(), entries.data(), directory.c_str(), writing.get());
  writing.reset();
  Ended ended;
  ended.error = ReadAll(reading.get());
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    throw std::system_error(errno, std::generic_category());
  }
  if (WIFEXITED(status)) ended.status = WEXITSTATUS(status);
  return ended;
}

void RunTool(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
  const Ended ended = RunProgram(command, environment);
  if (ended.status == 0) return;
  std::string message = "status " + std::to_string(ended.status) + " of";
  for (const std::string& word : command)
    message += " " + word;
  throw std::runtime_error(message + ": " + ended.error);
}

}  // namespace keldo::testing
