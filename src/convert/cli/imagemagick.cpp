#include "convert/cli/imagemagick.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>

#include "convert/cli/input_file.h"
#include "convert/sandbox/message.h"
#include "convert/sandbox/worker.h"
#include "media/imagemagick_names.h"

namespace keldo::convert {
namespace {

constexpr int kFailed = 1;
constexpr std::string_view kPolicyVariable = "MAGICK_CONFIGURE_PATH=";

std::optional<FileIdentity> IdentityOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

// "/opt/build/share/convert-thumb" for "/opt/build/bin/convert-thumb"; empty when it is not known.
std::string PolicyBeside(const std::string& ourselves) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(ourselves.c_str(), target.data(), target.size());
  if (length <= 0) return {};
  const std::string program(target.data(), static_cast<std::size_t>(length));
  return program.substr(0, program.rfind('/') + 1) + "../share/convert-thumb";
}

std::string FindPolicy(const OtherConverter& other) {
  for (const std::string& folder : {other.policy, PolicyBeside(other.ourselves)}) {
    if (!folder.empty() && IdentityOf(folder + "/policy.xml")) return folder;
  }
  Complain("note: " + other.policy + " is missing; ImageMagick runs with the system's own policy");
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

std::vector<char*> PointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts)
    pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// A link to ourselves in that place would start us again and again.
bool CanRun(const OtherConverter& other, const std::string& what) {
  const std::string& program = other.program;
  const std::optional<FileIdentity> found = IdentityOf(program);
  if (!found) {
    Complain(what + " needs ImageMagick's " + program + ", which is not installed");
    return false;
  }
  if (found != IdentityOf(other.ourselves)) return true;
  Complain(what + " needs ImageMagick, but " + program + " is this program");
  return false;
}

// `arguments` begins with the program's name.
int Run(const OtherConverter& other, const std::vector<std::string>& arguments) {
  constexpr int kNotStarted = 127;
  const std::vector<std::string> environment = EnvironmentWith(FindPolicy(other));
  const std::vector<char*> argv = PointersTo(arguments);
  const std::vector<char*> envp = PointersTo(environment);
  KeepExitStatuses();
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // We may ignore it, and a program inherits that.
    static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
    if (getppid() == parent) execve(other.program.c_str(), argv.data(), envp.data());
    Complain("cannot run " + other.program + ": " + LastErrorText());
    _exit(kNotStarted);
  }
  const int status = child > 0 ? WaitForChild(child) : -1;
  if (status < 0) {
    Complain("cannot run " + other.program + ": " + LastErrorText());
  } else if (WIFSIGNALED(status)) {
    Complain(other.program + " was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) == kNotStarted) return kFailed;
  return WEXITSTATUS(status);
}

std::vector<std::string> Vector(const OtherConverter& other,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> vector{other.program};
  vector.insert(vector.end(), arguments.begin(), arguments.end());
  return vector;
}

}  // namespace

int HandOver(const OtherConverter& other, const std::vector<std::string>& arguments,
             const std::string& what) {
  if (!CanRun(other, what)) return kFailed;
  return Run(other, Vector(other, arguments));
}

int HandOver(const OtherConverter& other, const std::vector<std::string>& arguments,
             const Command& command, const std::string& what) {
  if (!CanRun(other, what)) return kFailed;
  std::vector<std::string> vector = Vector(other, arguments);
  // What has a slash in it is taken for a file name.
  for (const std::vector<std::size_t>* places : {&command.inputs, &command.outputs}) {
    for (const std::size_t place : *places) {
      std::string& name = vector[place + 1];
      if (name.find('/') == std::string::npos) name.insert(0, "./");
    }
  }
  const media::LiteralNames names(other.program, vector);
  if (names.error() != 0) {
    Complain("cannot pass a file name to " + other.program + ": " + std::strerror(names.error()));
    return kFailed;
  }
  std::vector<std::string> literal = names.arguments();
  // A name that goes by way of a descriptor shows no extension, which would say what to write.
  for (const std::size_t place : command.outputs) {
    if (literal[place + 1] != vector[place + 1]) literal[place + 1].insert(0, "JPEG:");
  }
  return Run(other, literal);
}

}  // namespace keldo::convert
