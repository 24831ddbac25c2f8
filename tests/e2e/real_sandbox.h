// Checks the thumbnails that the real tools made of a photo.
#pragma once

#include <string>

#include "e2e/sandbox.h"
#include "support/images.h"

namespace keldo::testing {

/// How a photo should look in its thumbnails.
struct Look {
  int width = 0;  ///< Of the photo as it is shown, after any rotation.
  int height = 0;
  CornerColours colours = kCornerColours;
  int tolerance = 16;  ///< The greatest difference of a channel.
};

/// Checks all six thumbnails in a metadata directory, which the default profile file made: each
/// must be a complete JPEG file with the right size for its kind, the right colour in every
/// quarter, and mode 0644. The directory must contain nothing else.
void ExpectThumbnails(const Sandbox& box, const std::string& metadata, const Look& look);

/// A sandbox with the real tools and the default profile file.
class RealSandbox : public Sandbox {
 public:
  RealSandbox();

  /// Runs keldothumb on the targets until nothing is deferred: two runs. Returns both logs.
  std::vector<LogLine> RunTwice(const std::vector<std::string>& targets = {kPhotoDir});
  /// Runs one of the machine's tools, which must succeed.
  void Tool(const std::vector<std::string>& arguments);
};

}  // namespace keldo::testing
