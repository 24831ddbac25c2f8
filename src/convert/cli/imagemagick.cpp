#include "convert/cli/imagemagick.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "convert/cli/files.h"
#include "convert/sandbox/message.h"
#include "media/imagemagick_names.h"
#include "process/child.h"

namespace keldo::convert {
namespace {

constexpr int kFailed = 1;
constexpr std::string_view kPolicyVariable = "MAGICK_CONFIGURE_PATH=";

std::optional<FileIdentity> IdentityOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

// "/opt/build/bin/../share/convert-thumb" for "/opt/build/bin/convert-thumb"; empty when that is
// not known.
std::string PolicyBeside(const std::string& ourselves) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(ourselves.c_str(), target.data(), target.size());
  if (length <= 0) return {};
  const std::string program(target.data(), static_cast<std::size_t>(length));
  return program.substr(0, program.rfind('/') + 1) + "../share/convert-thumb";
}

std::string FindPolicy(const ImageMagick& magick) {
  for (const std::string& folder : {magick.policy, PolicyBeside(magick.ourselves)}) {
    if (!folder.empty() && IdentityOf(folder + "/policy.xml")) return folder;
  }
  PrintError("note: " + magick.policy +
             " is missing; ImageMagick runs with the system's own policy");
  return {};
}

// Our environment, with the policy in place of one that it may name.
std::vector<std::string> EnvironmentWith(const std::string& policy) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (policy.empty() || !std::string_view(*variable).starts_with(kPolicyVariable))
      variables.emplace_back(*variable);
  }
  if (!policy.empty()) variables.push_back(std::string(kPolicyVariable) + policy);
  return variables;
}

// A link to ourselves in its place would start us again and again.
bool CanRun(const ImageMagick& magick, const std::string& what) {
  const std::string& program = magick.program;
  const std::optional<FileIdentity> found = IdentityOf(program);
  if (!found) {
    PrintError(what + " needs ImageMagick's " + program + ", which is not installed");
    return false;
  }
  if (found != IdentityOf(magick.ourselves)) return true;
  PrintError(what + " needs ImageMagick, but " + program + " is this program");
  return false;
}

// `arguments` begins with the program's name.
int Run(const ImageMagick& magick, std::vector<std::string> arguments) {
  // The status of a shell that cannot start a program.
  constexpr int kNotStarted = 127;
  process::ChildPlan plan{magick.program, std::move(arguments)};
  plan.stdin_fd = STDIN_FILENO;
  plan.environment = EnvironmentWith(FindPolicy(magick));
  plan.in_our_place = true;
  int error = 0;
  std::optional<process::Child> child = process::Child::Start(plan, error);
  if (!child) errno = error;
  const int status = child ? child->Reap() : -1;
  if (status < 0) {
    PrintError("cannot run " + magick.program + ": " + LastErrorText());
  } else if (WIFSIGNALED(status)) {
    PrintError(magick.program + " was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) == kNotStarted) return kFailed;
  return WEXITSTATUS(status);
}

std::vector<std::string> Vector(const ImageMagick& magick,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> vector{magick.program};
  vector.insert(vector.end(), arguments.begin(), arguments.end());
  return vector;
}

}  // namespace

int RunImageMagick(const ImageMagick& magick, const std::vector<std::string>& arguments,
                   const std::string& what) {
  if (!CanRun(magick, what)) return kFailed;
  return Run(magick, Vector(magick, arguments));
}

int RunImageMagick(const ImageMagick& magick, const std::vector<std::string>& arguments,
                   const Command& command, const std::string& what) {
  if (!CanRun(magick, what)) return kFailed;
  std::vector<std::string> vector = Vector(magick, arguments);
  // ImageMagick takes what has a slash in it for a file name.
  for (const std::vector<std::size_t>* places : {&command.inputs, &command.outputs}) {
    for (const std::size_t place : *places) {
      std::string& name = vector[place + 1];
      if (name.find('/') == std::string::npos) name.insert(0, "./");
    }
  }
  const media::LiteralNames names(magick.program, vector);
  if (names.error() != 0) {
    PrintError("cannot pass a file name to " + magick.program + ": " +
               std::strerror(names.error()));
    return kFailed;
  }
  std::vector<std::string> literal = names.arguments();
  // A path of a descriptor has no extension, which would say what to write.
  for (const std::size_t place : command.outputs) {
    if (literal[place + 1] != vector[place + 1]) literal[place + 1].insert(0, "JPEG:");
  }
  return Run(magick, std::move(literal));
}

}  // namespace keldo::convert
