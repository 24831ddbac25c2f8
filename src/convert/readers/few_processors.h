// Keeping libraries from starting many threads.
#pragma once

#include <sched.h>

namespace keldo::convert {

/// AV1 decoders start a thread for every processor that they may run on, and libheif has no option
/// against it. While this object lives they may run on few: where threads cannot be bound, more
/// start, and nothing else changes.
class FewProcessors {
 public:
  explicit FewProcessors(int count);
  FewProcessors(const FewProcessors&) = delete;
  FewProcessors& operator=(const FewProcessors&) = delete;
  ~FewProcessors();

 private:
  cpu_set_t allowed_{};
  bool bound_ = false;
};

}  // namespace keldo::convert
