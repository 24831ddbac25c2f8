// Sockets that have a path.
#pragma once

#include <string>

#include "util/handles.h"

namespace keldo::testing {

/// A socket of this type (SOCK_STREAM, SOCK_DGRAM) bound to `path`, which anyone may use. Throws
/// std::runtime_error when that fails.
[[nodiscard]] UniqueFd BindUnixSocket(const std::string& path, int type);

}  // namespace keldo::testing
