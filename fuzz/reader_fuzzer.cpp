// Fuzzes the reader of one format (KELDO_FUZZ_FORMAT) and makes two thumbnails from its rows.
#include <sys/mman.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/pixels/plan.h"
#include "convert/readers/readers.h"

namespace keldo::convert {
namespace {

constexpr Format kFormat = Format::KELDO_FUZZ_FORMAT;
// Small, so that many files are tried.
constexpr Limits kLimits{.side = 3000, .pixels = 1 << 18, .memory_bytes = 1 << 24};

int MemoryFile() {
  const int descriptor = memfd_create("thumbnail", MFD_CLOEXEC);
  if (descriptor < 0) std::abort();
  return descriptor;
}

void LoadCodecOnce() {
  static const bool loaded = LoadCodec(kFormat);
  if (loaded) return;
  std::fputs("the codec is not installed\n", stderr);
  std::abort();
}

// All other parameters are derived from the size of the file, so that the corpus contains plain
// files.
std::vector<Step> StepsFor(std::size_t size) {
  std::vector<Step> steps(2);
  const int side = 1 + static_cast<int>(size % 90);
  steps[0].box = {side, side, size % 2 == 0};
  steps[0].auto_orient = size % 3 != 0;
  steps[1].box = {1 + side / 3, 1 + side / 3, size % 5 == 0};
  steps[1].quality = size % 7 == 0 ? 90 : 75;
  steps[1].unsharp = Sharpening{0.5, 0.5, 1.25, 0};
  return steps;
}

void Convert(Bytes file, const std::array<int, 2>& outputs) {
  const std::vector<Step> steps = StepsFor(file.size());
  ReadOptions options;
  options.limits = kLimits;
  options.first_box = steps.front().box;
  try {
    const auto image = OpenImage(kFormat, file, options);
    MakeThumbnails(steps, *image, {}, outputs);
  } catch (const ImageError&) {
    return;  // The right result for most inputs.
  }
}

}  // namespace
}  // namespace keldo::convert

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using keldo::convert::kFormat;
  static const std::array<int, 2> outputs{keldo::convert::MemoryFile(),
                                          keldo::convert::MemoryFile()};
  keldo::convert::LoadCodecOnce();
  const keldo::Bytes file(data, size);
  // A reader only gets files of its format.
  if (keldo::media::DetectFormat(file) == kFormat) keldo::convert::Convert(file, outputs);
  return 0;
}
