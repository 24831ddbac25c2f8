// The database of the embedded index.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "index/sqlite.h"
#include "platform/media_info.h"

namespace keldo::index {

/// All six kinds of thumbnails: what is wanted where no mask was set.
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

/// A media record, and the number of the media database that it is of.
struct MediaRecord {
  int database = 0;
  keldoindexutils::MediaInfo media;
};

/// How many files the index knows something of.
struct IndexCounts {
  std::int64_t resolutions = 0;
  std::int64_t versions = 0;
  std::int64_t finished = 0;
  std::int64_t media = 0;
};

/// One open index database: size masks by directory and type, resolutions of photos and of their
/// thumbnails, index versions, finished files, media records and whether conversion is on.
///
/// All directories and paths are taken and given as PathKey makes them. Nothing is logged or
/// thrown; after a failure problem() tells why.
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

  /// Removes the mask of one directory; that there was none is no failure.
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
                               std::optional<keldoindexutils::MediaInfo>& found);
  [[nodiscard]] bool SetMedia(const keldoindexutils::MediaInfo& media, int database);

  /// The size that was noted for a photo, as a record without orientation.
  [[nodiscard]] bool FindResolution(std::string_view path,
                                    std::optional<keldoindexutils::MediaInfo>& found);

  /// The thumbnail whose size was noted together with that of a photo.
  [[nodiscard]] bool FindMeasuredThumbnail(std::string_view path, std::optional<Measured>& found);

  /// All masks, in the byte order of their directories, photos before videos.
  [[nodiscard]] bool ListMasks(std::vector<MaskRecord>& masks);

  /// A file's records in all media databases, in the order of their numbers.
  [[nodiscard]] bool ListMedia(std::string_view path, std::vector<MediaRecord>& records);

  [[nodiscard]] bool CountRecords(IndexCounts& counts);

  /// Why the last operation failed.
  [[nodiscard]] const std::string& problem() const { return problem_; }

  /// True when the last operation failed because another process kept the database for too long:
  /// the next one may succeed.
  [[nodiscard]] bool was_busy() const { return was_busy_; }

 private:
  using RowReader = std::function<void(sqlite3_stmt* row)>;

  explicit IndexDatabase(UniqueSqlite database);

  /// Gives the row that a bound statement finds, if any, to `take`.
  [[nodiscard]] bool ReadRow(sqlite3_stmt* statement, const RowReader& take);
  /// The same with all rows.
  [[nodiscard]] bool ReadRows(sqlite3_stmt* statement, const RowReader& take);
  /// Passes `succeeded` on; remembers why when it is false.
  bool Check(bool succeeded);
  [[nodiscard]] bool Execute(const char* sql);
  [[nodiscard]] sqlite3_stmt* Prepared(UniqueStatement& statement, const char* sql);
  [[nodiscard]] bool Write(sqlite3_stmt* statement);
  [[nodiscard]] bool FindMaskInTransaction(std::string_view directory, int type,
                                           std::optional<MaskEntry>& found);
  [[nodiscard]] std::optional<int> SchemaVersion();
  [[nodiscard]] bool MakeSchema();
  [[nodiscard]] bool MakeSchemaInTurn();
  [[nodiscard]] bool HasOurSchema();
  [[nodiscard]] static OpenResult OpenFile(const std::string& path);

  UniqueSqlite database_;
  UniqueStatement begin_;
  UniqueStatement commit_;
  UniqueStatement find_mask_;
  UniqueStatement set_resolution_;
  std::string problem_;
  bool was_busy_ = false;
};

/// A database, or why there is none.
struct IndexDatabase::OpenResult {
  std::unique_ptr<IndexDatabase> database;
  bool missing = false;  ///< There is no such file, which is no failure for who only asks.
  std::string problem;   ///< Text for a person; empty on success.
};

}  // namespace keldo::index
