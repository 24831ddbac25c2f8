#include "convert/readers/few_processors.h"

#include <algorithm>
#include <cstddef>

namespace keldo::convert {

FewProcessors::FewProcessors(int count) {
  if (::sched_getaffinity(0, sizeof allowed_, &allowed_) != 0) return;
  cpu_set_t few;
  CPU_ZERO(&few);
  // Beginning with the one that this thread's caches are warm on.
  const int here = std::max(::sched_getcpu(), 0);
  for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&few) < count; ++i) {
    const auto processor = static_cast<std::size_t>((here + i) % CPU_SETSIZE);
    if (CPU_ISSET(processor, &allowed_)) CPU_SET(processor, &few);
  }
  bound_ = ::sched_setaffinity(0, sizeof few, &few) == 0;
}

FewProcessors::~FewProcessors() {
  if (bound_) ::sched_setaffinity(0, sizeof allowed_, &allowed_);
}

}  // namespace keldo::convert
