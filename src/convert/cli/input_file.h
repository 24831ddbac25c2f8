// The image that is read, as bytes in memory.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "convert/pixels/image.h"
#include "util/handles.h"

namespace keldo::convert {

/// Which file a name leads to, whatever the name.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// Why the last system call failed, in words: "Permission denied".
[[nodiscard]] std::string LastErrorText();

/// Opens a file, which nobody has to be at the other end of should it be a pipe; what a terminal
/// would do is not wanted either. Only for a file server that has lent the file to a client is
/// waited, until the client has given it back. Returns -1 and sets errno like open.
[[nodiscard]] int OpenWithoutWaiting(const std::string& path, int flags);

/// A file that is mapped into memory for as long as this lives.
class InputFile {
 public:
  /// Opens the file that `operand` names, of which "[0]" at the end is no part where the name
  /// without it exists. Throws ImageError (kCorrupt) when that cannot be.
  explicit InputFile(const std::string& operand);
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  [[nodiscard]] const FileIdentity& identity() const { return identity_; }

  /// Maps the content and closes the file. Throws ImageError: kUnsupported for what is not a
  /// regular file, such as a pipe, kCorrupt for an empty one. To be called once.
  void Map();

  /// The whole content. Should the file become shorter while it is read, touching what is gone
  /// raises SIGBUS.
  [[nodiscard]] Bytes bytes() const { return {data_, size_}; }

 private:
  UniqueFd fd_;
  FileIdentity identity_;
  bool regular_ = false;
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace keldo::convert
