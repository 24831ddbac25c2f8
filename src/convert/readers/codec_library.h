// A codec that is loaded when a file needs it: start-up time is for the formats that are used.
#pragma once

namespace keldo::convert {

/// A shared library that stays loaded to the end of the process: codecs keep state and may have
/// started threads, and the process ends after one image.
class CodecLibrary {
 public:
  /// `soname` is the name with the version whose headers we are built with.
  explicit CodecLibrary(const char* soname);

  /// Finds a function; false when the library or the function is not there. The type of `function`
  /// comes from the codec's own header, so that nothing is declared twice.
  template <typename Function>
  [[nodiscard]] bool Find(Function*& function, const char* name) const {
    function = reinterpret_cast<Function*>(Symbol(name));
    return function != nullptr;
  }

 private:
  [[nodiscard]] void* Symbol(const char* name) const;

  void* handle_;
};

}  // namespace keldo::convert
