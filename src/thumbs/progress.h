// The progress files that the indexer shows to its users: totals that it writes, and what every run
// has finished, added up in the same files. Additions of runs at the same moment can be lost; the
// numbers only drive a display.
#pragma once

namespace keldo {

/// Which progress file. Any other kind is refused.
enum ProgressKind : int { kPhotoProgress = 1, kVideoProgress = 2 };

/// Items (photos or videos) finished, done or failed for good.
inline constexpr const char* kCompletedKey = "completed";
/// Thumbnail files finished or given up.
inline constexpr const char* kCompletedThumbKey = "completed_thumb";

/// Adds `amount` to the counter `key`. A null key or another kind is ignored; a failed write is
/// logged and leaves the counter as it was.
void AddProgress(int kind, const char* key, int amount);

/// The counter's value; 0 when it is absent or no number, or the kind is another one.
[[nodiscard]] int ReadProgress(int kind, const char* key);

}  // namespace keldo
