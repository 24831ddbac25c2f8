// likeness REFERENCE.jpg OTHER.jpg [REFERENCE.jpg OTHER.jpg...]: prints a line for each pair with
// the PSNR in decibels and the SSIM, or "sizes differ" or "unreadable" if they cannot be compared.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "support/image_likeness.h"
#include "support/images.h"

namespace {

using keldo::testing::Image;

std::optional<Image> Load(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return keldo::testing::DecodeJpeg({std::istreambuf_iterator<char>(file), {}});
}

bool PrintLikeness(const char* reference_path, const char* other_path) {
  const std::optional<Image> reference = Load(reference_path);
  const std::optional<Image> other = Load(other_path);
  if (!reference || !other) {
    std::puts("unreadable");
    return false;
  }
  if (reference->width != other->width || reference->height != other->height) {
    std::printf("sizes differ: %dx%d %dx%d\n", reference->width, reference->height, other->width,
                other->height);
    return false;
  }
  std::printf("%.3f %.5f\n", keldo::testing::Psnr(*reference, *other),
              keldo::testing::Ssim(*reference, *other));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc % 2 == 0) {
    std::fputs("usage: likeness REFERENCE.jpg OTHER.jpg...\n", stderr);
    return 2;
  }
  bool all = true;
  for (int i = 1; i + 1 < argc; i += 2)
    all = PrintLikeness(argv[i], argv[i + 1]) && all;
  return all ? 0 : 1;
}
