// Runs our converter and ImageMagick's with the same arguments and compares their outputs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "convert/running.h"
#include "convert/sources.h"
#include "fakes/core_test.h"
#include "render/convert_command.h"
#include "support/natural_image.h"
#include "support/temp_dir.h"

namespace keldo::testing {

/// How closely our thumbnail must match ImageMagick's.
struct Likeness {
  /// The least PSNR in decibels. Arithmetic of a different precision changes single samples by one
  /// before the JPEG encoder rounds them. We measured 43 for the worst of hundreds of small
  /// sharpened thumbnails, and 50 for larger ones. A wrong filter gives 36, and so does an image
  /// that is shifted by a tenth of a pixel.
  double psnr = 42;
  double ssim = 0.99;  ///< The least SSIM.
  /// The least PSNR if a side is below 32 pixels, where a single pixel matters.
  double psnr_of_small = 37;
};

class ComparisonTest : public CoreTest {
 protected:
  ComparisonTest();

  /// A request for a square box, like those that the job makes for the first phase. Its output is a
  /// new name in the test's directory.
  [[nodiscard]] ThumbRequest Wanted(int side, bool fill = true, const std::string& unsharp = "");
  /// Three requests like those of the first phase, at a quarter of the size.
  [[nodiscard]] ThumbRequestList ThreeThumbnails();

  /// Writes an image as a file of this kind to the test's directory; returns its path.
  [[nodiscard]] std::string Source(std::string_view kind, const Image& image) const;
  [[nodiscard]] std::string Source(std::string_view kind, int width, int height) const {
    return Source(kind, NaturalImage(width, height));
  }

  /// The arguments with which keldothumb runs its converter.
  [[nodiscard]] static std::vector<std::string> Arguments(const ThumbRequestList& list,
                                                          const std::string& input,
                                                          const std::string& icc = "");
  /// An environment without the machine's limits for ImageMagick.
  [[nodiscard]] std::vector<std::string> WithoutLimits() const {
    return {"MAGICK_CONFIGURE_PATH=" + In("policy")};
  }
  /// Runs a converter, ImageMagick without the machine's limits.
  [[nodiscard]] static Ended RunOurs(const std::vector<std::string>& arguments,
                                     const std::string& directory = "");
  [[nodiscard]] Ended RunReference(const std::vector<std::string>& arguments) const;

  /// Runs both converters, which must both succeed, and compares all outputs.
  void Compare(const ThumbRequestList& list, const std::string& input, const Likeness& likeness,
               const std::string& icc = "");
  /// Runs both converters with any arguments. Both must end with the same status and write the same
  /// files of this list, which must match.
  void CompareRuns(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& outputs, const Likeness& likeness);

  /// Our file sizes divided by ImageMagick's, for all outputs that were compared.
  [[nodiscard]] const std::vector<double>& SizeRatios() const { return size_ratios_; }

 private:
  void CompareFiles(const std::string& ours, const std::string& reference,
                    const Likeness& likeness);

  int outputs_ = 0;
  std::vector<double> size_ratios_;
};

}  // namespace keldo::testing
