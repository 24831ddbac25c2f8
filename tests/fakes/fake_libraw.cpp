#include "fakes/fake_libraw.h"

#include <syslog.h>

#include <fstream>
#include <stdexcept>
#include <utility>

namespace keldo {
namespace {

using testing::fake_libraw;

int Step(const std::string& call, int result) {
  fake_libraw().calls.push_back(call);
  if (fake_libraw().on_step) fake_libraw().on_step(call);
  return result;
}

void Write(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

namespace testing {

FakeLibRaw& fake_libraw() {
  static FakeLibRaw decoder;
  return decoder;
}

}  // namespace testing

struct LibRawFile::Processor {};

LibRawFile::LibRawFile(std::string path) : path_(std::move(path)) {
  Step("Open(" + path_ + ")", 0);
  opened_ = fake_libraw().opens;
  if (!opened_) {
    syslog(LOG_ERR, "%s:%d Failed to open file [%s] using libraw", "keldothumb", 812,
           path_.c_str());
  }
}

LibRawFile::~LibRawFile() = default;

unsigned LibRawFile::PreviewLength() const {
  return fake_libraw().preview_length;
}
unsigned LibRawFile::PreviewWidth() const {
  return fake_libraw().preview_width;
}
unsigned LibRawFile::PreviewHeight() const {
  return fake_libraw().preview_height;
}

int LibRawFile::UnpackPreview() {
  return Step("UnpackPreview()", fake_libraw().unpack_preview);
}

int LibRawFile::WritePreview(const std::string& path) {
  Write(path, "preview");
  return Step("WritePreview(" + path + ")", fake_libraw().write_preview);
}

int LibRawFile::Unpack() {
  return Step("Unpack()", fake_libraw().unpack);
}

int LibRawFile::Process() {
  return Step("Process()", fake_libraw().process);
}

int LibRawFile::WritePpm(const std::string& path) {
  Write(path, "ppm");
  return Step("WritePpm(" + path + ")", fake_libraw().write_ppm);
}

LibRawSizeStep ReadLibRawOutputSize(const std::string& path, unsigned& width, unsigned& height) {
  Step("ReadOutputSize(" + path + ")", 0);
  if (fake_libraw().size_step == LibRawSizeStep::kDone) {
    width = fake_libraw().width;
    height = fake_libraw().height;
  }
  return fake_libraw().size_step;
}

}  // namespace keldo
