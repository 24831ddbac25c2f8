// What one run of the converter does: decode one image once, write a chain of thumbnails.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace keldo::convert {

/// Unsharp masking: p + gain * (p - blur(p)) where that differs enough.
struct Sharpening {
  double radius = 0;     ///< pixels; 0 means chosen from sigma
  double sigma = 1;      ///< pixels, of the Gaussian blur
  double gain = 1;       ///< how much of the difference is added
  double threshold = 0;  ///< fraction of the value range that a difference must reach
};

/// The largest size that a thumbnail may have.
struct Box {
  int width = 0;      ///< pixels
  int height = 0;     ///< pixels
  bool fill = false;  ///< the picture covers the box ("^"), instead of fitting into it
};

/// One thumbnail. What is turned on is done in the order of the members.
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

}  // namespace keldo::convert
