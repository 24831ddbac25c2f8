// Image files of many kinds for converters to read, made by other programs than ours.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/images.h"

namespace keldo::testing {

/// A way to write an image file.
struct SourceKind {
  std::string_view name;                  ///< As "JpegProgressive".
  std::string_view extension;             ///< Without a dot.
  std::vector<std::string_view> command;  ///< The tool. "IN" stands for a PPM file and "OUT" for
                                          ///< the output, also within a word.
};

/// All kinds.
[[nodiscard]] const std::vector<SourceKind>& SourceKinds();
/// Throws std::out_of_range for an unknown name.
[[nodiscard]] const SourceKind& SourceKindOf(std::string_view name);

/// Writes an image as a file "<stem>.<extension>"; returns the path. `environment` is the tool's.
[[nodiscard]] std::string WriteSource(const SourceKind& kind, const Image& image,
                                      const std::string& stem,
                                      const std::vector<std::string>& environment = {});

/// The JPEG file with an added EXIF block that contains this orientation.
[[nodiscard]] std::string WithOrientation(const std::string& jpeg, int orientation);

[[nodiscard]] std::string ReadContent(const std::string& path);
/// Writes a file; returns its path.
std::string WriteContent(const std::string& path, const std::string& content);

}  // namespace keldo::testing
