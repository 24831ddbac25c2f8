// Profile lists for unit tests.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

#include "fakes/fake_platform.h"
#include "thumbs/thumb_profile.h"

namespace keldo::testing {

/// All six kinds: XL, B and M in phase 0, L and SM in phase 1, S in phase 2. Each has a quality of
/// its own; B and SM are not sharpened.
inline constexpr const char* kSixThumbnails =
    "[thumbXL]\nsize=1280\nquality=91\nunsharp=1x1+1+0\nfilename=KELDOPHOTO:THUMB_XL.jpg\n"
    "[thumbL]\nsize=800\nquality=85\nunsharp=2x1+1+0\nfilename=KELDOPHOTO:THUMB_L.jpg\nphase=1\n"
    "[thumbB]\nsize=640\nquality=84\nfilename=KELDOPHOTO:THUMB_B.jpg\n"
    "[thumbM]\nsize=320\nquality=83\nunsharp=3x1+1+0\nfilename=KELDOPHOTO:THUMB_M.jpg\n"
    "[thumbSM]\nsize=240\nquality=82\nfilename=KELDOPHOTO:THUMB_SM.jpg\nphase=1\n"
    "[thumbS]\nsize=120\nquality=81\nunsharp=5x1+1+0\nfilename=KELDOPHOTO:THUMB_S.jpg\nphase=2\n";

/// Loads a profile list from a profile file of this text, which is written to `path`; the calls
/// that this makes are not in the fake's record.
inline void LoadProfiles(ThumbProfileList& profiles, const std::string& path,
                         const std::string& text = kSixThumbnails) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  const auto calls_before = fake().calls;
  if (profiles.load(path, "/v") == 0) throw std::runtime_error("cannot load " + path);
  fake().calls = calls_before;
}

}  // namespace keldo::testing
