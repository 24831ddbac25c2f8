#include "convert/sandbox/message.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace keldo::convert {
namespace {

constexpr std::string_view kProgram = "convert-thumb: ";
constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7f;

// Terminals obey U+0080 to U+009F as well; in UTF-8 these are two bytes.
bool StartsWithSecondControlSet(std::string_view text) {
  constexpr unsigned char kLead = 0xc2;
  constexpr unsigned char kLast = 0x9f;
  return text.size() >= 2 && static_cast<unsigned char>(text[0]) == kLead &&
         static_cast<unsigned char>(text[1]) <= kLast;
}

std::string Escaped(char character) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  constexpr unsigned kBase = 16;
  if (character == '\n') return "\\n";
  if (character == '\t') return "\\t";
  const auto byte = static_cast<unsigned char>(character);
  return {'\\', 'x', kDigits[byte / kBase], kDigits[byte % kBase]};
}

// In one piece, so that the lines of several runs do not mix. Whoever closed standard error does
// not want the messages.
void Write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

std::string OneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  while (!text.empty()) {
    const bool two = StartsWithSecondControlSet(text);
    const auto byte = static_cast<unsigned char>(text.front());
    const bool control = two || byte < kFirstPrintable || byte == kDelete;
    const std::size_t length = two ? 2 : 1;
    for (const char character : text.substr(0, length))
      line += control ? Escaped(character) : std::string(1, character);
    text.remove_prefix(length);
  }
  return line;
}

void PrintError(std::string_view name, std::string_view reason) {
  PrintError(std::string(name) + ": " + std::string(reason));
}

void PrintError(std::string_view message) {
  Write(std::string(kProgram) + OneLine(message) + "\n");
}

std::string LastErrorText() {
  return std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

}  // namespace keldo::convert
