#include "convert/readers/heif_codec.h"

#include "convert/readers/codec_library.h"

namespace keldo::convert {

constinit HeifCodec heif_codec{};

namespace {

bool FindHandleFunctions(const CodecLibrary& library) {
  return library.Find(heif_codec.handle_release, "heif_image_handle_release") &&
         library.Find(heif_codec.handle_width, "heif_image_handle_get_width") &&
         library.Find(heif_codec.handle_height, "heif_image_handle_get_height") &&
         library.Find(heif_codec.handle_has_alpha, "heif_image_handle_has_alpha_channel") &&
         library.Find(heif_codec.handle_bits, "heif_image_handle_get_luma_bits_per_pixel") &&
         library.Find(heif_codec.profile_size, "heif_image_handle_get_raw_color_profile_size") &&
         library.Find(heif_codec.profile, "heif_image_handle_get_raw_color_profile") &&
         library.Find(heif_codec.metadata_ids,
                      "heif_image_handle_get_list_of_metadata_block_IDs") &&
         library.Find(heif_codec.metadata_size, "heif_image_handle_get_metadata_size") &&
         library.Find(heif_codec.metadata, "heif_image_handle_get_metadata");
}

bool FindFunctions(const CodecLibrary& library) {
  return library.Find(heif_codec.init, "heif_init") &&
         library.Find(heif_codec.context_alloc, "heif_context_alloc") &&
         library.Find(heif_codec.context_free, "heif_context_free") &&
         library.Find(heif_codec.set_size_limit, "heif_context_set_maximum_image_size_limit") &&
         library.Find(heif_codec.set_threads, "heif_context_set_max_decoding_threads") &&
         library.Find(heif_codec.read_from_memory, "heif_context_read_from_memory_without_copy") &&
         library.Find(heif_codec.get_primary, "heif_context_get_primary_image_handle") &&
         library.Find(heif_codec.decode, "heif_decode_image") &&
         library.Find(heif_codec.image_release, "heif_image_release") &&
         library.Find(heif_codec.image_width, "heif_image_get_width") &&
         library.Find(heif_codec.image_height, "heif_image_get_height") &&
         library.Find(heif_codec.image_bits, "heif_image_get_bits_per_pixel_range") &&
         library.Find(heif_codec.plane, "heif_image_get_plane_readonly");
}

}  // namespace

bool LoadHeifCodec() {
  const CodecLibrary library("libheif.so.1");
  if (!FindFunctions(library) || !FindHandleFunctions(library)) return false;
  // Plug-ins are looked for here, while files can still be opened.
  return heif_codec.init(nullptr).code == heif_error_Ok;
}

}  // namespace keldo::convert
