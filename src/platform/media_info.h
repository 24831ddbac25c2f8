// What the index knows about one media file.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>

namespace keldoindexutils {

/// A media record. Sizes are in pixels as stored in the file, before any rotation.
class MediaInfo {
 public:
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] int resolution_x() const { return resolution_x_; }
  [[nodiscard]] int resolution_y() const { return resolution_y_; }
  /// Orientation code 1 to 8 in EXIF numbering; 0 when unknown.
  [[nodiscard]] int photo_rotation() const { return photo_rotation_; }
  /// Bit rate of a video's frames in bit/s.
  [[nodiscard]] int frame_bitrate() const { return frame_bitrate_; }

  void path(std::string value) { path_ = std::move(value); }
  void resolution_x(int value) { resolution_x_ = value; }
  void resolution_y(int value) { resolution_y_ = value; }
  void photo_rotation(int value) { photo_rotation_ = value; }
  void frame_bitrate(int value) { frame_bitrate_ = value; }

  /// Fills the record from the members "path", "resolution_x", "resolution_y", "photo_rotation"
  /// and "frame_bitrate" of a JSON object. Members that are absent or of another type leave their
  /// field as it was; a value that is no object changes nothing.
  void SetByJson(const Json::Value& media);

 private:
  std::string path_;
  int resolution_x_ = 0;
  int resolution_y_ = 0;
  int photo_rotation_ = 0;
  int frame_bitrate_ = 0;
};

/// Reads the width and height in pixels of an ordinary image from its header; no pixels are
/// decoded. JPEG, PNG, TIFF, GIF, WebP, BMP and portable pixmaps give the stored size, HEIC and
/// AVIF the displayed one, since their decoders always apply the orientation. True on success;
/// silent.
[[nodiscard]] bool KELDOIndexImgResGet(const std::string& path, unsigned& width, unsigned& height);

}  // namespace keldoindexutils
