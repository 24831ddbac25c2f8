// Every fixed path of the system, in one place.
#pragma once

namespace keldo::paths {

inline constexpr const char* kPidFile = "/var/run/keldothumb.pid";
inline constexpr const char* kProcessPidFileFormat = "/var/run/keldothumb.%d.pid";
inline constexpr const char* kProcessPidFilePattern = "/var/run/keldothumb.*.pid";

inline constexpr const char* kPhotoProgress = "/var/spool/conv_progress_photo";
inline constexpr const char* kVideoProgress = "/var/spool/conv_progress_video";
inline constexpr const char* kThumbQueue = "/var/spool/thumb_create.queue";
inline constexpr const char* kThumbQueueInWork = "/var/spool/thumb_create.queue.tmp";
inline constexpr const char* kFlvQueue = "/var/spool/flv_create.queue";
inline constexpr const char* kFlvQueueInWork = "/var/spool/flv_create.queue.tmp";

inline constexpr const char* kPluginDaemonSocket = "/tmp/keldoindexplugind_sock";

inline constexpr const char* kCodecPackageMarker = "/var/packages/Vantrel/target/pack/HAS_HEVC";
inline constexpr const char* kCodecPackageConverter =
    "/var/packages/Vantrel/target/pack/usr/bin/convert";
inline constexpr const char* kCodecPackageTranscoder =
    "/var/packages/Vantrel/target/pack/bin/ffmpeg41";
inline constexpr const char* kSystemConverter = "/usr/keldo/bin/convert-thumb";
inline constexpr const char* kSystemTranscoder = "/usr/keldo/bin/ffmpeg-thumb";
inline constexpr const char* kDjpeg = "/bin/djpeg";
inline constexpr const char* kDcraw = "/usr/bin/dcraw";
inline constexpr const char* kCompare = "/usr/bin/compare";

}  // namespace keldo::paths
