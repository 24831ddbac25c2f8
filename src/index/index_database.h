// The index that is built into this program, for machines where no other one runs: a database, and
// what this process asks of the system's own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "index/sqlite.h"

namespace keldo::index {

inline constexpr const char* kDatabasePath = "/var/lib/keldoindex/index.db";

/// All six kinds of thumbnails, wanted wherever no mask was set.
inline constexpr int kAllKinds = 63;

/// A size mask, and the directory that it was set for.
struct MaskEntry {
  int mask = 0;
  std::string directory;
};

/// A photo or thumbnail and its size in pixels.
struct Measured {
  std::string path;
  int width = 0;
  int height = 0;
};

/// A mask as it was set.
struct MaskRecord {
  std::string directory;
  int type = 0;
  int mask = 0;
};

/// What one of the index's media databases holds of a file.
struct MediaRecord {
  std::string path;
  int width = 0;
  int height = 0;
  int orientation = 0;  ///< EXIF numbering; 0 when unknown.
  int bit_rate = 0;     ///< Of a video's frames, in bit/s.
  int database = 0;     ///< 1: videos.
};

/// How many files the index has records of.
struct IndexCounts {
  std::int64_t resolutions = 0;
  std::int64_t versions = 0;
  std::int64_t finished = 0;
  std::int64_t media = 0;
};

/// One open index database: size masks by directory and type, resolutions of photos and of their
/// thumbnails, index versions, finished files, media records and whether conversion is on.
///
/// All directories and paths are spelt as PathKey spells them. Nothing is logged or
/// thrown; after a failure problem() says why.
class IndexDatabase {
 public:
  struct OpenResult;

  /// Opens the database at `path` for reading and, where that is allowed, writing. Makes nothing.
  [[nodiscard]] static OpenResult Open(const std::string& path);

  /// The same, but makes the database (mode 0644) and its directory (0755) where they are missing.
  [[nodiscard]] static OpenResult OpenOrCreate(const std::string& path);

  /// Finds the mask that holds for `directory`: its own, else that of the nearest directory above;
  /// nothing when none was set. False when the database cannot be read; `found` is then empty.
  [[nodiscard]] bool FindMask(std::string_view directory, int type,
                              std::optional<MaskEntry>& found);

  /// Sets or changes the mask of one directory.
  [[nodiscard]] bool SetMask(std::string_view directory, int type, int mask);

  /// Removes the mask of one directory; succeeds where there was none.
  [[nodiscard]] bool RemoveMask(std::string_view directory, int type);

  /// Notes the resolutions of a photo and of a thumbnail made from it, in place of older ones.
  [[nodiscard]] bool SetResolution(const Measured& photo, const Measured& thumbnail);

  /// Finds the index version of a file; nothing when none was set. False when the database cannot
  /// be read; `found` is then empty. So it is with every Find.
  [[nodiscard]] bool FindVersion(std::string_view path, std::optional<int>& found);
  [[nodiscard]] bool SetVersion(std::string_view path, int version);

  /// When the work on a file was finished, in seconds since 1970.
  [[nodiscard]] bool FindFinished(std::string_view path, std::optional<std::int64_t>& time);
  [[nodiscard]] bool AddFinished(std::string_view path, std::int64_t time);

  /// Whether conversion of this type of files was switched on or off.
  [[nodiscard]] bool FindConversion(int type, std::optional<bool>& on);
  [[nodiscard]] bool SetConversion(int type, bool on);

  /// The record of a file in one of the index's media databases (1: videos).
  [[nodiscard]] bool FindMedia(std::string_view path, int database,
                               std::optional<MediaRecord>& found);
  [[nodiscard]] bool SetMedia(const MediaRecord& media);

  /// The size that was noted for a photo.
  [[nodiscard]] bool FindResolution(std::string_view path, std::optional<Measured>& found);

  /// The thumbnail that was noted with a photo's size.
  [[nodiscard]] bool FindMeasuredThumbnail(std::string_view path, std::optional<Measured>& found);

  /// All masks, in the byte order of their directories, photos before videos.
  [[nodiscard]] bool ListMasks(std::vector<MaskRecord>& masks);

  /// A file's records in all media databases, in the order of their numbers.
  [[nodiscard]] bool ListMedia(std::string_view path, std::vector<MediaRecord>& records);

  [[nodiscard]] bool CountRecords(IndexCounts& counts);

  /// Why the last operation failed.
  [[nodiscard]] const std::string& problem() const { return sqlite_.problem(); }

  /// True when the last operation failed because another process kept the database for too long:
  /// the next one may succeed.
  [[nodiscard]] bool was_busy() const { return sqlite_.was_busy(); }

 private:
  explicit IndexDatabase(UniqueSqlite database) : sqlite_(std::move(database)) {}

  [[nodiscard]] std::optional<int> SchemaVersion();
  [[nodiscard]] bool MakeSchema();
  [[nodiscard]] bool MakeSchemaInTurn();
  [[nodiscard]] bool HasOurSchema();
  [[nodiscard]] static OpenResult OpenFile(const std::string& path);

  Sqlite sqlite_;
};

/// A database, or why there is none.
struct IndexDatabase::OpenResult {
  std::unique_ptr<IndexDatabase> database;
  bool missing = false;  ///< There is no such file, not a failure for a caller that only asks.
  std::string problem;   ///< Text for a person; empty on success.
};

// What follows uses one database for the whole process, the system's. Where there is none, or it
// cannot be opened, read or written, the defaults hold, silently: without an index the program
// makes all thumbnails of all photos, and that is not a failure.

/// The mask of the kinds wanted for the files of `directory`, which may be spelt in any way.
///
/// The database is looked for at the first call and then kept open; where there was none, later
/// calls cost no system call at all. Changes by other processes are seen at the next call.
[[nodiscard]] int WantedKinds(std::string_view directory, int type);

/// Notes the resolutions of a photo and of a thumbnail made from it.
void NoteResolution(const Measured& photo, const Measured& thumbnail);

/// Makes this process use the database at `path` from now on instead of the system's. For tests.
void UseIndexAt(const std::string& path);

}  // namespace keldo::index
