// Answering one request: JSON text in, JSON text out.
#pragma once

#include <string>
#include <string_view>

#include "plugind/index_store.h"

namespace keldo::plugind {

/// The reply to a request, and why it was refused.
struct Answer {
  std::string reply;    ///< One JSON object without a newline; always carries "success".
  std::string problem;  ///< Text for the log; empty unless the request itself was wrong.
};

/// Answers the request in `text`. Whatever the text is, there is an answer; nothing is thrown. A
/// path in it may be any bytes.
[[nodiscard]] Answer AnswerRequest(std::string_view text, IndexStore& store);

/// The answer to something that is no request at all.
[[nodiscard]] Answer Refusal(std::string problem);

}  // namespace keldo::plugind
