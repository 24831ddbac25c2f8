#include "e2e/log_collector.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <regex>

#include "e2e/unix_socket.h"

namespace keldo::testing {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << " \"" << line.text << '"';
}

LogLine ParseLogPacket(std::string_view packet) {
  static const std::regex form(R"(<(\d+)>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d keldothumb: ([^]*))");
  constexpr int kUserFacility = 1;
  const std::string text(packet.substr(0, packet.find('\0')));
  std::smatch parts;
  if (!std::regex_match(text, parts, form)) return {-1, text};
  const int code = std::stoi(parts[1]);
  if (code >> 3 != kUserFacility) return {-1, text};
  return {code & 7, parts[2]};
}

LogCollector::LogCollector(const std::string& path)
    : socket_(BindUnixSocket(path, SOCK_DGRAM)), stop_(::eventfd(0, EFD_CLOEXEC)) {
  thread_ = std::thread([this] { Collect(); });
}

LogCollector::~LogCollector() {
  ::eventfd_write(stop_.get(), 1);
  thread_.join();
}

std::vector<LogLine> LogCollector::Take() {
  ReadAll();
  const std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

void LogCollector::Collect() {
  for (;;) {
    std::array<pollfd, 2> events = {{{socket_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    if (::poll(events.data(), events.size(), -1) < 0) continue;
    if (events[1].revents != 0) return;
    ReadAll();
  }
}

void LogCollector::ReadAll() {
  const std::lock_guard lock(mutex_);
  std::array<char, 16384> packet{};
  for (;;) {
    const ssize_t size = ::recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (size < 0) return;
    lines_.push_back(ParseLogPacket({packet.data(), static_cast<std::size_t>(size)}));
  }
}

}  // namespace keldo::testing
