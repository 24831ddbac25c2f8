// The media index: which thumbnails it wants, what it knows of a file, and the packets that the
// indexer's daemons exchange.
#pragma once

#include <json/value.h>

#include "platform/media_info.h"

/// Which kind of thumbnails a size mask is for.
enum _tag_THUMB_TYPE_ : int { THUMB_TYPE_PHOTO = 1, THUMB_TYPE_VIDEO = 2 };

namespace keldoindexutils::ipc {

/// Fills `mask` with the kinds wanted for the files of `directory` (bit k: thumbnails of kind k).
/// Returns 0 on success, negative when the index cannot tell; `mask` is then left as it was.
int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask);

/// The same for one file.
int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask);

/// 1 when the video must be converted into film files.
[[nodiscard]] int KELDOIDX_IsVideoNeedConvert(const char* path);

/// Fills the media record of a photo: path, size and orientation. Returns 0, or -1 when the file
/// cannot be read as an image (logged).
[[nodiscard]] int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info);

/// Tells the index the resolutions of a photo and of a thumbnail made from it. Returns 0 on
/// success.
int KELDOIDX_IndexConvertAdd(const MediaInfo& source, const MediaInfo& converted,
                             const Json::Value& extra);

/// Sends `value` as one JSON text to the daemon that listens on `socket_path` and replaces it with
/// the reply. `flags` is -1. The whole exchange is over within `timeout_seconds`. Returns 0 when a
/// reply was read; negative otherwise, and `value` is then an empty object. A socket that is served
/// by another user than root or ourselves is treated as if nobody listened. Termination requests
/// are let in while it waits. Silent; never raises SIGPIPE.
int AutoSendRecvPacket(const char* socket_path, int flags, Json::Value& value, int timeout_seconds);

}  // namespace keldoindexutils::ipc
