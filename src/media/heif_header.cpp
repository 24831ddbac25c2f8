#include "media/heif_header.h"

#include <dlfcn.h>
#include <libheif/heif.h>

#include <algorithm>
#include <array>
#include <memory>

namespace keldo::media {
namespace {

constexpr auto kBrands =
    std::to_array<std::string_view>({"avif", "avis", "heic", "heim", "heis", "heix", "hevc", "hevm",
                                     "hevs", "hevx", "mif1", "mif2", "msf1"});

// The functions that we use, found at run time.
class HeifLibrary {
 public:
  HeifLibrary() : handle_(::dlopen("libheif.so.1", RTLD_NOW | RTLD_LOCAL)) {
    complete_ = handle_ != nullptr && Find(context_alloc, "heif_context_alloc") &&
                Find(context_free, "heif_context_free") &&
                Find(read_from_file, "heif_context_read_from_file") &&
                Find(get_primary, "heif_context_get_primary_image_handle") &&
                Find(handle_release, "heif_image_handle_release") &&
                Find(get_width, "heif_image_handle_get_width") &&
                Find(get_height, "heif_image_handle_get_height");
  }

  [[nodiscard]] bool complete() const { return complete_; }

  decltype(&::heif_context_alloc) context_alloc = nullptr;
  decltype(&::heif_context_free) context_free = nullptr;
  decltype(&::heif_context_read_from_file) read_from_file = nullptr;
  decltype(&::heif_context_get_primary_image_handle) get_primary = nullptr;
  decltype(&::heif_image_handle_release) handle_release = nullptr;
  decltype(&::heif_image_handle_get_width) get_width = nullptr;
  decltype(&::heif_image_handle_get_height) get_height = nullptr;

 private:
  template <typename Function>
  bool Find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(::dlsym(handle_, name));
    return function != nullptr;
  }

  void* handle_;  // Kept to the end of the process: other threads of the library may run.
  bool complete_ = false;
};

const HeifLibrary& Library() {
  static const HeifLibrary library;
  return library;
}

bool IsKnown(std::string_view brand) {
  return std::ranges::find(kBrands, brand) != kBrands.end();
}

std::uint32_t BigEndian(std::string_view bytes) {
  std::uint32_t number = 0;
  for (const char byte : bytes)
    number = (number << 8U) | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace

// The file begins with a box: its size, "ftyp", the main brand, a version, then further brands that
// it is readable as, all of four bytes.
bool IsHeif(std::string_view start) {
  constexpr std::size_t kWord = 4;
  constexpr std::size_t kMainBrand = 8;
  constexpr std::size_t kFurtherBrands = 16;
  if (start.size() < kMainBrand + kWord || start.substr(kWord, kWord) != "ftyp") return false;
  if (IsKnown(start.substr(kMainBrand, kWord))) return true;
  const std::size_t end = std::min<std::size_t>(BigEndian(start.substr(0, kWord)), start.size());
  for (std::size_t brand = kFurtherBrands; brand + kWord <= end; brand += kWord) {
    if (IsKnown(start.substr(brand, kWord))) return true;
  }
  return false;
}

std::optional<ImageSize> HeifSize(const std::string& path) {
  const HeifLibrary& heif = Library();
  if (!heif.complete()) return std::nullopt;
  const std::unique_ptr<heif_context, decltype(heif.context_free)> context(heif.context_alloc(),
                                                                           heif.context_free);
  if (!context) return std::nullopt;
  if (heif.read_from_file(context.get(), path.c_str(), nullptr).code != heif_error_Ok) {
    return std::nullopt;
  }
  heif_image_handle* raw = nullptr;
  if (heif.get_primary(context.get(), &raw).code != heif_error_Ok) return std::nullopt;
  const std::unique_ptr<heif_image_handle, decltype(heif.handle_release)> image(
      raw, heif.handle_release);
  return ImageSize{.width = heif.get_width(raw), .height = heif.get_height(raw)};
}

}  // namespace keldo::media
