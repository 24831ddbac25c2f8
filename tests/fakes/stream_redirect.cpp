// File streams of the program under test on the system's fixed paths reach the sandbox, like its
// system calls (see libc_redirect.cpp), and fail where the test makes "ifstream" fail.
//
// An optimised build opens a stream through filebuf::open, another one through ifstream's
// constructors, which lie in the C++ library as a whole. ifstream::open is left alone: use the
// constructors.
#include <fstream>
#include <string>

#include "fakes/fake_platform.h"

using keldo::testing::fake;
using keldo::testing::FakePlatform;

namespace {

std::string Redirect(const std::string& path) {
  if (!FakePlatform::IsFixedPath(path)) return path;
  return fake().Enter("ifstream", path) ? "" : fake().Real(path);
}

}  // namespace

extern "C" {

using Stream = std::ifstream;
using Buffer = std::filebuf;
using Mode = std::ios_base::openmode;

Buffer* __real__ZNSt13basic_filebufIcSt11char_traitsIcEE4openEPKcSt13_Ios_Openmode(Buffer* self,
                                                                                   const char* path,
                                                                                   Mode mode);
void __real__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1EPKcSt13_Ios_Openmode(Stream* self,
                                                                              const char* path,
                                                                              Mode mode);
void __real__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1ERKNSt7__cxx1112basic_stringIcS1_SaIcEEESt13_Ios_Openmode(
    Stream* self, const std::string& path, Mode mode);

Buffer* __wrap__ZNSt13basic_filebufIcSt11char_traitsIcEE4openEPKcSt13_Ios_Openmode(Buffer* self,
                                                                                   const char* path,
                                                                                   Mode mode);
void __wrap__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1EPKcSt13_Ios_Openmode(Stream* self,
                                                                              const char* path,
                                                                              Mode mode);
void __wrap__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1ERKNSt7__cxx1112basic_stringIcS1_SaIcEEESt13_Ios_Openmode(
    Stream* self, const std::string& path, Mode mode);

Buffer* __wrap__ZNSt13basic_filebufIcSt11char_traitsIcEE4openEPKcSt13_Ios_Openmode(Buffer* self,
                                                                                   const char* path,
                                                                                   Mode mode) {
  return __real__ZNSt13basic_filebufIcSt11char_traitsIcEE4openEPKcSt13_Ios_Openmode(
      self, Redirect(path).c_str(), mode);
}

void __wrap__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1EPKcSt13_Ios_Openmode(Stream* self,
                                                                              const char* path,
                                                                              Mode mode) {
  __real__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1EPKcSt13_Ios_Openmode(
      self, Redirect(path).c_str(), mode);
}

void __wrap__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1ERKNSt7__cxx1112basic_stringIcS1_SaIcEEESt13_Ios_Openmode(
    Stream* self, const std::string& path, Mode mode) {
  __real__ZNSt14basic_ifstreamIcSt11char_traitsIcEEC1ERKNSt7__cxx1112basic_stringIcS1_SaIcEEESt13_Ios_Openmode(
      self, Redirect(path), mode);
}

}  // extern "C"
