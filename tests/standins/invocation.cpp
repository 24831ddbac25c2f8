#include "standins/invocation.h"

#include <fcntl.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "util/handles.h"

namespace keldo::testing {
namespace {

// Every text is written as its length, a colon and its bytes ("5:a.jpg" and so on), since arguments
// may hold any byte but NUL, newlines among them.
void AppendText(std::string& out, std::string_view text) {
  out += std::to_string(text.size());
  out += ':';
  out += text;
}

class RecordReader {
 public:
  explicit RecordReader(std::string content) : content_(std::move(content)) {}

  [[nodiscard]] bool AtEnd() const { return position_ >= content_.size(); }

  std::string Text() {
    const std::size_t colon = content_.find(':', position_);
    if (colon == std::string::npos) throw std::runtime_error("broken record of the stand-ins");
    const std::size_t length = std::stoul(content_.substr(position_, colon - position_));
    position_ = colon + 1 + length;
    if (position_ > content_.size()) throw std::runtime_error("cut record of the stand-ins");
    return content_.substr(colon + 1, length);
  }

 private:
  std::string content_;
  std::size_t position_ = 0;
};

}  // namespace

void AppendInvocation(const std::string& record_path, const Invocation& invocation) {
  std::string out;
  AppendText(out, invocation.program);
  AppendText(out, invocation.directory);
  AppendText(out, invocation.codec_package ? "=" + *invocation.codec_package : "");
  AppendText(out, std::to_string(invocation.arguments.size()));
  for (const std::string& argument : invocation.arguments)
    AppendText(out, argument);

  const UniqueFd file(::open(record_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!file.valid() ||
      ::write(file.get(), out.data(), out.size()) != static_cast<ssize_t>(out.size())) {
    throw std::runtime_error("cannot write " + record_path);
  }
}

std::vector<Invocation> ReadInvocations(const std::string& record_path) {
  std::ifstream file(record_path, std::ios::binary);
  RecordReader reader({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
  std::vector<Invocation> invocations;
  while (!reader.AtEnd()) {
    Invocation invocation;
    invocation.program = reader.Text();
    invocation.directory = reader.Text();
    const std::string package = reader.Text();
    if (!package.empty()) invocation.codec_package = package.substr(1);
    const std::size_t count = std::stoul(reader.Text());
    for (std::size_t i = 0; i < count; ++i)
      invocation.arguments.push_back(reader.Text());
    invocations.push_back(std::move(invocation));
  }
  return invocations;
}

}  // namespace keldo::testing
