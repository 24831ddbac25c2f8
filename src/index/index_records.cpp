// What the plug-in daemon asks of the database and notes in it, a file at a time, and what people
// ask of it.
#include "index/index_database.h"

namespace keldo::index {

using keldoindexutils::MediaInfo;

namespace {

std::string BytesAt(sqlite3_stmt* row, int column) {
  const void* bytes = sqlite3_column_blob(row, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
  return bytes == nullptr ? std::string() : std::string(static_cast<const char*>(bytes), size);
}

}  // namespace

bool IndexDatabase::ReadRow(sqlite3_stmt* statement, const RowReader& take) {
  const int result = sqlite3_step(statement);
  if (result == SQLITE_ROW) take(statement);
  return Check(result == SQLITE_ROW || result == SQLITE_DONE);
}

bool IndexDatabase::ReadRows(sqlite3_stmt* statement, const RowReader& take) {
  int result = sqlite3_step(statement);
  for (; result == SQLITE_ROW; result = sqlite3_step(statement))
    take(statement);
  return Check(result == SQLITE_DONE);
}

bool IndexDatabase::FindVersion(std::string_view path, std::optional<int>& found) {
  found.reset();
  UniqueStatement statement;
  return Prepared(statement, "SELECT version FROM versions WHERE path=?1") != nullptr &&
         Check(BindBytes(statement.get(), 1, path)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) { found = sqlite3_column_int(row, 0); });
}

bool IndexDatabase::SetVersion(std::string_view path, int version) {
  UniqueStatement statement;
  return Prepared(statement, "INSERT OR REPLACE INTO versions(path, version) VALUES(?1, ?2)") !=
             nullptr &&
         Check(BindBytes(statement.get(), 1, path) && BindNumber(statement.get(), 2, version)) &&
         Write(statement.get());
}

bool IndexDatabase::FindFinished(std::string_view path, std::optional<std::int64_t>& time) {
  time.reset();
  UniqueStatement statement;
  return Prepared(statement, "SELECT time FROM finished WHERE path=?1") != nullptr &&
         Check(BindBytes(statement.get(), 1, path)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) { time = sqlite3_column_int64(row, 0); });
}

bool IndexDatabase::AddFinished(std::string_view path, std::int64_t time) {
  UniqueStatement statement;
  return Prepared(statement, "INSERT OR REPLACE INTO finished(path, time) VALUES(?1, ?2)") !=
             nullptr &&
         Check(BindBytes(statement.get(), 1, path) &&
               sqlite3_bind_int64(statement.get(), 2, time) == SQLITE_OK) &&
         Write(statement.get());
}

bool IndexDatabase::FindConversion(int type, std::optional<bool>& on) {
  on.reset();
  UniqueStatement statement;
  return Prepared(statement, "SELECT is_on FROM conversion WHERE type=?1") != nullptr &&
         Check(BindNumber(statement.get(), 1, type)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) { on = sqlite3_column_int(row, 0) != 0; });
}

bool IndexDatabase::SetConversion(int type, bool on) {
  UniqueStatement statement;
  return Prepared(statement, "INSERT OR REPLACE INTO conversion(type, is_on) VALUES(?1, ?2)") !=
             nullptr &&
         Check(BindNumber(statement.get(), 1, type) &&
               BindNumber(statement.get(), 2, on ? 1 : 0)) &&
         Write(statement.get());
}

bool IndexDatabase::FindMedia(std::string_view path, int database,
                              std::optional<MediaInfo>& found) {
  found.reset();
  UniqueStatement statement;
  return Prepared(statement,
                  "SELECT width, height, rotation, bitrate FROM media"
                  " WHERE path=?1 AND database=?2") != nullptr &&
         Check(BindBytes(statement.get(), 1, path) && BindNumber(statement.get(), 2, database)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) {
           found.emplace();
           found->path(std::string(path));
           found->resolution_x(sqlite3_column_int(row, 0));
           found->resolution_y(sqlite3_column_int(row, 1));
           found->photo_rotation(sqlite3_column_int(row, 2));
           found->frame_bitrate(sqlite3_column_int(row, 3));
         });
}

bool IndexDatabase::SetMedia(const MediaInfo& media, int database) {
  UniqueStatement statement;
  return Prepared(statement,
                  "INSERT OR REPLACE INTO media(path, database, width, height, rotation, bitrate)"
                  " VALUES(?1, ?2, ?3, ?4, ?5, ?6)") != nullptr &&
         Check(BindBytes(statement.get(), 1, media.path()) &&
               BindNumber(statement.get(), 2, database) &&
               BindNumber(statement.get(), 3, media.resolution_x()) &&
               BindNumber(statement.get(), 4, media.resolution_y()) &&
               BindNumber(statement.get(), 5, media.photo_rotation()) &&
               BindNumber(statement.get(), 6, media.frame_bitrate())) &&
         Write(statement.get());
}

bool IndexDatabase::FindResolution(std::string_view path, std::optional<MediaInfo>& found) {
  found.reset();
  UniqueStatement statement;
  return Prepared(statement, "SELECT width, height FROM resolutions WHERE path=?1") != nullptr &&
         Check(BindBytes(statement.get(), 1, path)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) {
           found.emplace();
           found->path(std::string(path));
           found->resolution_x(sqlite3_column_int(row, 0));
           found->resolution_y(sqlite3_column_int(row, 1));
         });
}

bool IndexDatabase::FindMeasuredThumbnail(std::string_view path, std::optional<Measured>& found) {
  found.reset();
  UniqueStatement statement;
  return Prepared(statement,
                  "SELECT thumb_path, thumb_width, thumb_height FROM resolutions"
                  " WHERE path=?1") != nullptr &&
         Check(BindBytes(statement.get(), 1, path)) &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) {
           found = {BytesAt(row, 0), sqlite3_column_int(row, 1), sqlite3_column_int(row, 2)};
         });
}

bool IndexDatabase::ListMasks(std::vector<MaskRecord>& masks) {
  masks.clear();
  UniqueStatement statement;
  return Prepared(statement, "SELECT directory, type, mask FROM masks ORDER BY directory, type") !=
             nullptr &&
         ReadRows(statement.get(), [&](sqlite3_stmt* row) {
           masks.push_back(
               {BytesAt(row, 0), sqlite3_column_int(row, 1), sqlite3_column_int(row, 2)});
         });
}

bool IndexDatabase::ListMedia(std::string_view path, std::vector<MediaRecord>& records) {
  records.clear();
  UniqueStatement statement;
  return Prepared(statement,
                  "SELECT database, width, height, rotation, bitrate FROM media"
                  " WHERE path=?1 ORDER BY database") != nullptr &&
         Check(BindBytes(statement.get(), 1, path)) &&
         ReadRows(statement.get(), [&](sqlite3_stmt* row) {
           MediaRecord record{sqlite3_column_int(row, 0), {}};
           record.media.path(std::string(path));
           record.media.resolution_x(sqlite3_column_int(row, 1));
           record.media.resolution_y(sqlite3_column_int(row, 2));
           record.media.photo_rotation(sqlite3_column_int(row, 3));
           record.media.frame_bitrate(sqlite3_column_int(row, 4));
           records.push_back(std::move(record));
         });
}

bool IndexDatabase::CountRecords(IndexCounts& counts) {
  counts = {};
  UniqueStatement statement;
  return Prepared(statement,
                  "SELECT (SELECT count(*) FROM resolutions), (SELECT count(*) FROM versions),"
                  " (SELECT count(*) FROM finished),"
                  " (SELECT count(DISTINCT path) FROM media)") != nullptr &&
         ReadRow(statement.get(), [&](sqlite3_stmt* row) {
           counts = {sqlite3_column_int64(row, 0), sqlite3_column_int64(row, 1),
                     sqlite3_column_int64(row, 2), sqlite3_column_int64(row, 3)};
         });
}

}  // namespace keldo::index
