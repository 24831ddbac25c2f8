// What one run of the converter does: decode one image once and make a chain of thumbnails.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace keldo::convert {

class ImageReader;

struct Size {
  int width = 0;   ///< pixels
  int height = 0;  ///< pixels
  friend bool operator==(const Size&, const Size&) = default;
};

/// The largest size that a thumbnail may have.
struct Box {
  int width = 0;      ///< pixels
  int height = 0;     ///< pixels
  bool fill = false;  ///< the image covers the box ("^") instead of fitting into it
};

/// The size of the thumbnail of an image: scaled to fit into the box, or to cover it where the box
/// says fill. Sides are rounded, at least 1, and never larger than the image's.
[[nodiscard]] Size ThumbnailSize(const Size& image, const Box& box);

/// Unsharp masking: p + gain * (p - blur(p)) where that differs enough.
struct Sharpening {
  double radius = 0;     ///< pixels; 0 means chosen from sigma
  double sigma = 1;      ///< pixels, of the Gaussian blur
  double gain = 1;       ///< how much of the difference is added
  double threshold = 0;  ///< fraction of the value range that a difference must reach
};

/// One thumbnail. The operations run in the order of the members.
struct Step {
  Box box;
  int quality = 92;  ///< JPEG quality, 1 to 100; the converter's own default where none is given
  bool flatten = false;
  bool auto_orient = false;
  int rotate = 0;  ///< degrees clockwise: 0, 90, 180 or 270
  bool flop = false;
  std::optional<Sharpening> unsharp;
  std::string output;  ///< path of the JPEG file to write
};

/// The first step works on the input image, every later one on the result of the first.
struct Plan {
  std::string temporary_path;  ///< directory for big temporary files; empty for none
  bool one_thread = false;
  std::string input;        ///< path as given, "[0]" included
  std::string icc_profile;  ///< path of an ICC profile to attach; empty for none
  std::vector<Step> steps;  ///< at least one
};

/// Makes the thumbnails of all steps and writes each to the output descriptor at the same index.
/// Nothing is written before a thumbnail is complete; then it replaces what was there.
/// `attached_icc` is the content of the plan's ICC profile, empty for none. Throws ImageError.
void MakeThumbnails(const std::vector<Step>& steps, ImageReader& image,
                    std::span<const std::uint8_t> attached_icc, std::span<const int> outputs);

}  // namespace keldo::convert
