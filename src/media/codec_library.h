// Codecs that are loaded at run time.
#pragma once

#include <dlfcn.h>

namespace keldo::media {

/// A shared library with a codec, loaded when a file needs it so that starting up stays cheap. It
/// is never closed: codecs keep state and may have started threads.
class CodecLibrary {
 public:
  /// `soname` names the version whose headers we are built with. RTLD_NOW, since nothing can be
  /// looked up once the process can no longer open files.
  explicit CodecLibrary(const char* soname) : handle_(::dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

  /// Finds a function; false when the library or the function is not there. The type of `function`
  /// comes from the codec's own header, so that nothing is declared twice.
  template <typename Function>
  [[nodiscard]] bool Find(Function*& function, const char* name) const {
    function = handle_ == nullptr ? nullptr : reinterpret_cast<Function*>(::dlsym(handle_, name));
    return function != nullptr;
  }

 private:
  void* handle_;
};

}  // namespace keldo::media
