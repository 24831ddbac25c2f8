// Memory for rows of samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace keldo::convert {

/// Uninitialised 16-bit samples, aligned to a cache line so that no vector lies across two.
class SampleBuffer {
 public:
  static constexpr std::size_t kAlignment = 64;
  /// Rows that are a multiple of this many samples apart are aligned too.
  static constexpr std::size_t kSamples = kAlignment / sizeof(std::int16_t);

  /// Throws std::bad_alloc.
  explicit SampleBuffer(std::size_t count)
      : samples_(static_cast<std::int16_t*>(
            ::operator new (count * sizeof(std::int16_t), std::align_val_t{kAlignment}))) {}

  [[nodiscard]] std::int16_t* data() { return samples_.get(); }
  [[nodiscard]] const std::int16_t* data() const { return samples_.get(); }

  /// `count` rounded up to whole cache lines.
  [[nodiscard]] static std::size_t Stride(std::size_t count) {
    return (count + kSamples - 1) / kSamples * kSamples;
  }

 private:
  struct Free {
    void operator()(std::int16_t* samples) const {
      ::operator delete (samples, std::align_val_t{kAlignment});
    }
  };

  std::unique_ptr<std::int16_t, Free> samples_;
};

}  // namespace keldo::convert
