// The media index: which thumbnails it wants, what it knows of a file, its work queues, and the
// packets that the indexer's daemons exchange.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace keldoindexutils {

/// What the index knows of one media file. Sizes are in pixels as stored in the file, before any
/// rotation.
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
  /// field as it was; a value that is not an object changes nothing.
  void SetByJson(const Json::Value& media);

 private:
  // Values only, and callers copy the record freely: an opaque part would cost an allocation a
  // record and hide nothing that a port would want to choose.
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

/// Which kind of thumbnails a size mask is for.
enum _tag_THUMB_TYPE_ : int { THUMB_TYPE_PHOTO = 1, THUMB_TYPE_VIDEO = 2 };

namespace keldoindexutils::ipc {

/// Fills `mask` with the kinds wanted for the files of `directory` (bit k: thumbnails of kind k).
/// Returns 0 on success, negative when the index does not know; `mask` is then left as it was.
int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask);

/// The same for one file.
int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask);

/// 1 when the video must be converted into film files.
[[nodiscard]] int KELDOIDX_IsVideoNeedConvert(const char* path);

/// Fills the media record of a photo: path, size and orientation. Returns 0, or -1 when the file
/// cannot be read as an image (logged).
[[nodiscard]] int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info);

/// Reports the resolutions of a photo and of a thumbnail made from it to the index. Returns 0 on
/// success.
int KELDOIDX_IndexConvertAdd(const MediaInfo& source, const MediaInfo& converted,
                             const Json::Value& extra);

/// Sends `value` as one JSON text to the daemon that listens on `socket_path` and replaces it with
/// the reply. `flags` is -1. The whole exchange is over within `timeout_seconds`. Returns 0 when a
/// reply was read; negative otherwise, and `value` is then an empty object. A socket that is served
/// by another user than root or ourselves is treated as if nobody listened. Termination requests
/// are let in while it waits. Silent; never raises SIGPIPE.
int AutoSendRecvPacket(const char* socket_path, int flags, Json::Value& value, int timeout_seconds);

}  // namespace keldoindexutils::ipc

namespace keldoindexutils::filesystem {

/// Appends `text` as one line to the queue file, under a lock; a line that is already there is not
/// written twice. The file is made with mode 0644. False on failure, and for a text that holds a
/// newline, since it would be read back as two entries. Silent.
[[nodiscard]] bool WriteIndexQueue(const std::string& text, const std::string& queue_path);

/// The paths of the entries of `directory` whose names match the shell pattern, in byte order; a
/// leading dot is matched by an explicit dot only. The directory is taken literally, so a photo may
/// be called "a[1]*.jpg". Empty when the directory cannot be read. Silent.
[[nodiscard]] std::vector<std::string> GlobFiles(const std::string& directory,
                                                 const std::string& pattern);

}  // namespace keldoindexutils::filesystem
