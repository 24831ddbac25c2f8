#include "support/jpeg_facts.h"

#include <csetjmp>
#include <cstddef>
#include <cstdio>
// jpeglib.h needs the two above.
#include <jpeglib.h>

#include <cstdlib>
#include <string_view>

namespace keldo::testing {
namespace {

constexpr int kApp1 = JPEG_APP0 + 1;
constexpr int kApp2 = JPEG_APP0 + 2;
constexpr unsigned kWholeMarker = 0xFFFF;

// libjpeg reports errors through a function that must not return.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf escape;
};

[[noreturn]] void Escape(j_common_ptr info) {
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->escape, 1);
}

void IgnoreMessage(j_common_ptr /*info*/) {}

bool ReadHeader(jpeg_decompress_struct& info, ErrorManager& errors, const std::string& content) {
  if (setjmp(errors.escape) != 0) return false;
  jpeg_mem_src(&info, reinterpret_cast<const JOCTET*>(content.data()), content.size());
  jpeg_save_markers(&info, JPEG_COM, kWholeMarker);
  jpeg_save_markers(&info, kApp1, kWholeMarker);
  jpeg_save_markers(&info, kApp2, kWholeMarker);
  jpeg_read_header(&info, TRUE);
  return true;
}

void NoteMarkers(const jpeg_decompress_struct& info, JpegFacts& facts) {
  for (const jpeg_marker_struct* marker = info.marker_list; marker; marker = marker->next) {
    const std::string_view data(reinterpret_cast<const char*>(marker->data), marker->data_length);
    if (marker->marker == JPEG_COM) facts.comment = true;
    if (marker->marker == kApp1 && data.starts_with("Exif")) facts.exif = true;
  }
}

JpegFacts FactsOf(jpeg_decompress_struct& info) {
  JpegFacts facts;
  facts.width = static_cast<int>(info.image_width);
  facts.height = static_cast<int>(info.image_height);
  for (int i = 0; i < info.num_components; ++i) {
    facts.components.push_back({info.comp_info[i].h_samp_factor, info.comp_info[i].v_samp_factor});
  }
  facts.jfif = info.saw_JFIF_marker != FALSE;
  facts.density_unit = info.density_unit;
  facts.density_x = info.X_density;
  facts.density_y = info.Y_density;
  facts.progressive = info.progressive_mode != FALSE;
  NoteMarkers(info, facts);
  JOCTET* icc = nullptr;
  unsigned size = 0;
  if (jpeg_read_icc_profile(&info, &icc, &size) != FALSE) {
    facts.icc.assign(reinterpret_cast<const char*>(icc), size);
    std::free(icc);
  }
  return facts;
}

}  // namespace

std::optional<JpegFacts> ReadJpegFacts(const std::string& content) {
  ErrorManager errors{};
  jpeg_decompress_struct info{};
  info.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = Escape;
  errors.base.output_message = IgnoreMessage;
  jpeg_create_decompress(&info);
  std::optional<JpegFacts> facts;
  if (ReadHeader(info, errors, content)) facts = FactsOf(info);
  jpeg_destroy_decompress(&info);
  return facts;
}

std::string Describe(const JpegFacts& facts) {
  std::string text = std::to_string(facts.width) + "x" + std::to_string(facts.height);
  const char* separator = " ";
  for (const SamplingFactors& factors : facts.components) {
    text += separator + std::to_string(factors.horizontal) + "x" + std::to_string(factors.vertical);
    separator = ",";
  }
  text += " density " + std::to_string(facts.density_unit) + ":" + std::to_string(facts.density_x) +
          "x" + std::to_string(facts.density_y);
  if (!facts.jfif) text += " no JFIF";
  if (!facts.icc.empty()) text += " icc " + std::to_string(facts.icc.size()) + " bytes";
  if (facts.exif) text += " exif";
  if (facts.comment) text += " comment";
  if (facts.progressive) text += " progressive";
  return text;
}

}  // namespace keldo::testing
