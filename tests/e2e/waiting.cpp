#include "e2e/waiting.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace keldo::testing {

void WaitUntil(const std::function<bool()>& condition) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (steady_clock::now() > deadline) throw std::runtime_error("waited in vain");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void WaitForInvocations(const Sandbox& box, std::size_t count) {
  WaitUntil([&] { return ReadInvocations(box.Outside("/standins/record")).size() >= count; });
}

}  // namespace keldo::testing
