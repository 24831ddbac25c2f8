// Sockets with a path.
#pragma once

#include <string>

#include "util/handles.h"

namespace keldo::testing {

/// A socket of this type (SOCK_STREAM, SOCK_DGRAM) bound to `path`, which everybody may use. Throws
/// std::runtime_error on failure.
[[nodiscard]] UniqueFd BindUnixSocket(const std::string& path, int type);

}  // namespace keldo::testing
