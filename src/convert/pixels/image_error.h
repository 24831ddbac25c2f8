// Why an image could not be converted.
#pragma once

#include <stdexcept>
#include <string>

namespace keldo::convert {

/// Thrown by readers and the pixel work, and caught in one place. `what()` is a phrase for the
/// user, such as "the file ends in its header"; the file's name is added by whoever prints it.
class ImageError : public std::runtime_error {
 public:
  enum class Kind {
    kCorrupt,      ///< the file is damaged or empty
    kLimit,        ///< the image is larger than the limits allow
    kUnsupported,  ///< a valid file of a kind that another converter must read
    kOutput,       ///< a thumbnail could not be written
  };

  ImageError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

  [[nodiscard]] Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace keldo::convert
