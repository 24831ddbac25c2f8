// A RAW decoder for unit tests, in the place of the real one behind render/libraw_file.h.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "render/libraw_file.h"

namespace keldo::testing {

/// The fake decoder's one record: what was asked of it and what it answers.
struct FakeLibRaw {
  /// Every step in order, as "UnpackPreview()" or "WritePpm(/v/x.ppm)".
  std::vector<std::string> calls;

  bool opens = true;
  unsigned preview_length = 0;
  unsigned preview_width = 0;
  unsigned preview_height = 0;

  /// The steps' results; 0 is success. The writers make their file whatever they return.
  int unpack_preview = 0;
  int write_preview = 0;
  int unpack = 0;
  int process = 0;
  int write_ppm = 0;

  LibRawSizeStep size_step = LibRawSizeStep::kDone;
  unsigned width = 0;
  unsigned height = 0;

  /// Called at every step, with its entry in `calls`: what happens meanwhile.
  std::function<void(const std::string&)> on_step;
};

/// The fake decoder of this process. A test resets it by assigning {}.
FakeLibRaw& fake_libraw();

}  // namespace keldo::testing
