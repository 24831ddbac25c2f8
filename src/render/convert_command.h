// The converter's command line: one run that decodes a photo once and writes a chain of thumbnails.
#pragma once

#include <string>

#include "platform/index_ipc.h"
#include "platform/process.h"
#include "render/thumb_request.h"

namespace keldo {

/// Runs the converter on `inputPath` for all thumbnails of the list, which write to their
/// `tempPath`. `iccPath` names a file with the ICC profile to attach; empty, or a missing or empty
/// file, means none. True when the converter ended with success. Silent; removes nothing.
[[nodiscard]] bool RunConvert(const ThumbRequestList& list, const std::string& inputPath,
                              const std::string& iccPath);

/// RunConvert without an ICC profile.
[[nodiscard]] bool RunConvertPlain(const ThumbRequestList& list, const std::string& inputPath);

/// Adds the converter's temporary directory, taken from the first request; nothing when it has
/// none.
void AddTemporaryPathDefine(const ThumbRequestList& list, KELDOUtils::ProcessRunner& runner);

/// Adds the options of one thumbnail, in their fixed order.
void AddThumbnailOptions(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);

/// Adds the group that makes the largest thumbnail from the photo and drops the photo.
void AddFirstThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);
/// Adds the group that makes a thumbnail from a clone of the largest one.
void AddMiddleThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);
/// Adds the end of the command, which makes the last thumbnail from what is left.
void AddLastThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);

/// Sets `flop` and `rotate` of the first request from the photo's EXIF orientation (2 to 8; any
/// other value changes nothing). The later thumbnails are made from the first and need nothing.
/// Throws std::out_of_range for an empty list.
void ApplyPhotoRotation(ThumbRequestList& list, const keldoindexutils::MediaInfo& mediaInfo);

}  // namespace keldo
