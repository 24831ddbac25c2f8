// Running our converter and ImageMagick's with the same arguments, and comparing what they make.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "convert/running.h"
#include "convert/sources.h"
#include "fakes/core_test.h"
#include "render/thumb_request.h"
#include "support/natural_picture.h"
#include "support/temp_dir.h"

namespace keldo::testing {

/// How alike our thumbnail must be to ImageMagick's.
struct Likeness {
  /// Decibels, at least. Arithmetic of another precision changes single samples by one before the
  /// JPEG encoder rounds them: measured, 43 are left in the worst of hundreds of small sharpened
  /// thumbnails and 50 in larger ones. A wrong filter leaves 36, a picture that lies a tenth of a
  /// pixel off as much.
  double psnr = 42;
  double ssim = 0.99;  ///< At least.
  /// Decibels where a side is below 32 pixels: there, one pixel counts.
  double psnr_of_small = 37;
};

class ComparisonTest : public CoreTest {
 protected:
  ComparisonTest();

  /// A request for a square box, as the job makes it for the first phase; its output is a fresh
  /// name in the test's directory.
  [[nodiscard]] ThumbRequest Wanted(int side, bool fill = true, const std::string& unsharp = "");
  /// Three requests as those of the first phase, at a quarter of the size.
  [[nodiscard]] ThumbRequestList ThreeThumbnails();

  /// Writes a picture as a file of this kind into the test's directory; its path.
  [[nodiscard]] std::string Source(std::string_view kind, const Picture& picture) const;
  [[nodiscard]] std::string Source(std::string_view kind, int width, int height) const {
    return Source(kind, NaturalPicture(width, height));
  }

  /// The arguments that the photo run gives to its converter.
  [[nodiscard]] static std::vector<std::string> Arguments(const ThumbRequestList& list,
                                                          const std::string& input,
                                                          const std::string& icc = "");
  /// The environment in which ImageMagick has none of the machine's limits.
  [[nodiscard]] std::vector<std::string> WithoutLimits() const {
    return {"MAGICK_CONFIGURE_PATH=" + In("policy")};
  }
  /// Runs a converter; ImageMagick without the machine's limits.
  [[nodiscard]] static Ended RunOurs(const std::vector<std::string>& arguments,
                                     const std::string& directory = "");
  [[nodiscard]] Ended RunReference(const std::vector<std::string>& arguments) const;

  /// Runs both converters, which must both succeed, and compares all outputs.
  void Compare(const ThumbRequestList& list, const std::string& input, const Likeness& likeness,
               const std::string& icc = "");
  /// Runs both converters with any arguments. Both must end with the same status, and make the same
  /// of these files, and those must be alike.
  void CompareRuns(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& outputs, const Likeness& likeness);

  /// Our file sizes divided by ImageMagick's, of all outputs that were compared.
  [[nodiscard]] const std::vector<double>& SizeRatios() const { return size_ratios_; }

 private:
  void CompareFiles(const std::string& ours, const std::string& reference,
                    const Likeness& likeness);

  int outputs_ = 0;
  std::vector<double> size_ratios_;
};

}  // namespace keldo::testing
