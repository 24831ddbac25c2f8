#include "convert/readers/codec_library.h"

#include <dlfcn.h>

namespace keldo::convert {

// RTLD_NOW: nothing may be looked up later, when the process can no longer open files.
CodecLibrary::CodecLibrary(const char* soname) : handle_(::dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

void* CodecLibrary::Symbol(const char* name) const {
  return handle_ == nullptr ? nullptr : ::dlsym(handle_, name);
}

}  // namespace keldo::convert
