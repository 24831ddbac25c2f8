// Requests to the indexer's plug-in daemon: one JSON object each way over its local socket.
//
// A request that fails (no daemon, time-out, refusal, invalid reply) logs one line "fail" and
// returns the result named below. Callers go on without the answer.
#pragma once

#include <string>

#include "platform/index_ipc.h"

namespace keldo {

/// The index version of a file; -1 on failure.
[[nodiscard]] int GetIndexVersion(const std::string& path);

/// Tells the daemon that a photo's thumbnails are done, or given up.
void PostPhotoConvert(const std::string& path);

/// Tells the daemon that a video's conversion is done.
void PostVideoConvert(const std::string& path);

/// Whether photo conversion is switched on; false on failure.
[[nodiscard]] bool IsPhotoConversionOn();

/// Whether video conversion is switched on; false on failure.
[[nodiscard]] bool IsVideoConversionOn();

/// Fills `media` with the daemon's record of a file; `type` says which kind of record is asked for
/// (1: the video database). Returns 0, or -1 on failure.
[[nodiscard]] int GetMediaFromPluginDb(int type, const std::string& path,
                                       keldoindexutils::MediaInfo& media);

}  // namespace keldo
