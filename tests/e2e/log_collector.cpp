#include "e2e/log_collector.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <system_error>
#include <utility>

#include "e2e/unix_socket.h"

namespace keldo::testing {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << " \"" << line.text << '"';
}

LogLine ParseLogPacket(std::string_view packet) {
  constexpr int kUserFacility = 1;
  constexpr std::string_view kTime = "Mmm dd hh:mm:ss ";
  constexpr std::string_view kName = "keldothumb: ";
  packet = packet.substr(0, packet.find('\0'));
  const LogLine other_form = {-1, std::string(packet)};

  int code = -1;
  const std::size_t end = packet.find('>');
  if (!packet.starts_with('<') || end == std::string_view::npos) return other_form;
  const auto [stop, error] = std::from_chars(packet.data() + 1, packet.data() + end, code);
  if (error != std::errc() || stop != packet.data() + end) return other_form;

  std::string_view text = packet.substr(end + 1);
  if (text.size() < kTime.size()) return other_form;
  for (const std::size_t separator : {3U, 6U, 9U, 12U, 15U}) {
    if (text[separator] != kTime[separator]) return other_form;
  }
  text.remove_prefix(kTime.size());
  if (!text.starts_with(kName) || code >> 3 != kUserFacility) return other_form;
  return {code & 7, std::string(text.substr(kName.size()))};
}

LogCollector::LogCollector(const std::string& path)
    : socket_(BindUnixSocket(path, SOCK_DGRAM)), stop_(::eventfd(0, EFD_CLOEXEC)) {
  thread_ = std::thread([this] { Collect(); });
}

LogCollector::~LogCollector() {
  ::eventfd_write(stop_.get(), 1);
  thread_.join();
}

std::vector<LogLine> LogCollector::TakeLines() {
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
