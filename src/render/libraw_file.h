// The in-process RAW decoder, seen from the code that decides what to do with it. The library
// itself stays behind this header, so that tests can put another decoder in its place.
#pragma once

#include <memory>
#include <string>

namespace keldo {

/// One opened RAW photo; lives for one conversion.
class LibRawFile {
 public:
  /// Opens `path`. A failure is logged and leaves `opened` false.
  explicit LibRawFile(std::string path);
  ~LibRawFile();
  LibRawFile(const LibRawFile&) = delete;
  LibRawFile& operator=(const LibRawFile&) = delete;

  [[nodiscard]] bool opened() const { return opened_; }

  /// Length in bytes, width and height in pixels of the embedded preview, as the header says.
  [[nodiscard]] unsigned PreviewLength() const;
  [[nodiscard]] unsigned PreviewWidth() const;
  [[nodiscard]] unsigned PreviewHeight() const;

  /// The decoder's steps; each returns 0 on success. Silent.
  [[nodiscard]] int UnpackPreview();
  [[nodiscard]] int WritePreview(const std::string& path);
  [[nodiscard]] int Unpack();
  [[nodiscard]] int Process();
  [[nodiscard]] int WritePpm(const std::string& path);

 private:
  struct Processor;

  std::unique_ptr<Processor> processor_;
  std::string path_;
  bool opened_ = false;
};

/// How far reading a RAW photo's output size got.
enum class LibRawSizeStep { kDone, kOpenFailed, kAdjustFailed };

/// Reads the size in pixels of the image that decoding `path` would give, without decoding it.
/// Silent.
[[nodiscard]] LibRawSizeStep ReadLibRawOutputSize(const std::string& path, unsigned& width,
                                                  unsigned& height);

}  // namespace keldo
