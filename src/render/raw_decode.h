// Camera RAW photos: from the RAW file to one intermediate image that thumbnails are made from.
//
// The camera's embedded preview is used when it is large enough; otherwise the photo is decoded.
// LibRaw reads all types but "x3f", which the external dcraw reads.
#pragma once

#include <string>

#include "render/libraw_file.h"
#include "thumbs/thumb_profile.h"

namespace keldo {

/// Makes the intermediate image of `source_path` in `thumb_dir` (the photo's metadata directory).
/// Returns its path, or an empty string when none could be made or the photo changed meanwhile.
/// The caller removes it. LibRaw runs in a process of its own: whatever a damaged file does to it
/// becomes a failed decode. Logs what the steps below log.
[[nodiscard]] std::string ConvertRawImage(const ThumbJob& job, const std::string& source_path,
                                          const std::string& thumb_dir);

/// The LibRaw back end. It uses a preview whose width or height is greater than the largest
/// thumbnail.
[[nodiscard]] std::string ConvertRawWithLibRaw(const ThumbJob& job, const std::string& source_path,
                                               const std::string& thumb_dir);

/// The dcraw back end. It uses a preview whose larger side is at least the largest thumbnail.
[[nodiscard]] std::string ConvertRawWithDcraw(const ThumbJob& job, const std::string& source_path,
                                              const std::string& thumb_dir);

/// Writes the embedded preview to `out_path` in the camera's own format. Silent.
[[nodiscard]] bool ExtractRawPreview(LibRawFile& raw, const std::string& out_path);

/// Decodes the photo into a PPM file. Silent.
[[nodiscard]] bool DecodeRawToPpm(LibRawFile& raw, const std::string& out_path);

/// True when the photo has a preview wider or higher than `size` pixels.
[[nodiscard]] bool PreviewIsLargeEnough(const LibRawFile& raw, unsigned size);

/// Runs dcraw with `option` ("-e" or "-w") and copies what it prints to `out_path`. True when some
/// bytes arrived and all were written; a partial file stays. Logs each failure.
[[nodiscard]] bool RunDcrawToFile(const std::string& source_path, const std::string& out_path,
                                  const char* option);

/// Removes both intermediate images from `thumb_dir`; a missing one is not a failure.
void RemoveRawIntermediates(const std::string& thumb_dir);

}  // namespace keldo
