#include "plugind/request_buffer.h"

namespace keldo::plugind {

void RequestBuffer::Append(std::string_view bytes) {
  bytes_.erase(0, begin_);
  searched_ -= begin_;
  begin_ = 0;
  bytes_.append(bytes);
}

std::optional<RequestLine> RequestBuffer::Next() {
  while (true) {
    const std::size_t newline = bytes_.find('\n', searched_);
    if (newline == std::string::npos) return NextUnfinished();
    const std::size_t begin = begin_;
    begin_ = searched_ = newline + 1;
    const bool reported = dropping_;
    dropping_ = false;
    if (reported) continue;
    if (newline - begin > kMaxRequest) return RequestLine{.text = {}, .too_long = true};
    return RequestLine{.text = bytes_.substr(begin, newline - begin), .too_long = false};
  }
}

std::optional<RequestLine> RequestBuffer::NextUnfinished() {
  searched_ = bytes_.size();
  if (!dropping_ && bytes_.size() - begin_ <= kMaxRequest) return std::nullopt;
  begin_ = bytes_.size();
  if (dropping_) return std::nullopt;
  dropping_ = true;
  return RequestLine{.text = {}, .too_long = true};
}

std::optional<RequestLine> RequestBuffer::Rest() {
  if (std::optional<RequestLine> line = Next()) return line;
  if (begin_ == bytes_.size()) return std::nullopt;
  RequestLine line{.text = bytes_.substr(begin_), .too_long = false};
  begin_ = searched_ = bytes_.size();
  return line;
}

}  // namespace keldo::plugind
