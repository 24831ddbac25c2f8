// The functions of libheif that we use.
#pragma once

#include <libheif/heif.h>

namespace keldo::convert {

struct HeifCodec {
  decltype(&::heif_init) init;
  decltype(&::heif_context_alloc) context_alloc;
  decltype(&::heif_context_free) context_free;
  decltype(&::heif_context_set_maximum_image_size_limit) set_size_limit;
  decltype(&::heif_context_set_max_decoding_threads) set_threads;
  decltype(&::heif_context_read_from_memory_without_copy) read_from_memory;
  decltype(&::heif_context_get_primary_image_handle) get_primary;
  decltype(&::heif_image_handle_release) handle_release;
  decltype(&::heif_image_handle_get_width) handle_width;
  decltype(&::heif_image_handle_get_height) handle_height;
  decltype(&::heif_image_handle_has_alpha_channel) handle_has_alpha;
  decltype(&::heif_image_handle_get_luma_bits_per_pixel) handle_bits;
  decltype(&::heif_image_handle_get_raw_color_profile_size) profile_size;
  decltype(&::heif_image_handle_get_raw_color_profile) profile;
  decltype(&::heif_image_handle_get_list_of_metadata_block_IDs) metadata_ids;
  decltype(&::heif_image_handle_get_metadata_size) metadata_size;
  decltype(&::heif_image_handle_get_metadata) metadata;
  decltype(&::heif_decode_image) decode;
  decltype(&::heif_image_release) image_release;
  decltype(&::heif_image_get_width) image_width;
  decltype(&::heif_image_get_height) image_height;
  decltype(&::heif_image_get_bits_per_pixel_range) image_bits;
  decltype(&::heif_image_get_plane_readonly) plane;
};

/// Filled by LoadHeifCodec.
extern constinit HeifCodec heif_codec;

/// Loads libheif; false when it is not installed.
[[nodiscard]] bool LoadHeifCodec();

}  // namespace keldo::convert
