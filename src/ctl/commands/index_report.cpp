// keldothumbctl index list and show: what the index holds.
#include <json/value.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/mask_text.h"
#include "index/index_database.h"
#include "platform/index_ipc.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

using index::IndexCounts;
using index::IndexDatabase;
using index::MaskEntry;
using index::MaskRecord;
using index::Measured;
using index::MediaRecord;
using Rows = std::vector<std::vector<std::string>>;

constexpr const char* kShowExamples =
    "Examples:\n"
    "  keldothumbctl index show /volume1/photo\n"
    "  keldothumbctl index show --json /volume1/photo/a.jpg | jq .finished\n";

constexpr const char* kNoDatabase = "There is no index; all kinds are wanted everywhere.\n";

const char* TypeName(int type) {
  return type == THUMB_TYPE_VIDEO ? "video" : "photo";
}

// Opens the database at `path` and calls `read` if there is one. Returns the exit status.
int WithDatabase(const std::string& path, Console& console,
                 const std::function<bool(IndexDatabase&)>& read) {
  const IndexDatabase::OpenResult opened = IndexDatabase::Open(path);
  if (!opened.database) return opened.missing ? kAllWell : console.Fail(path, opened.problem);
  return read(*opened.database) ? kAllWell : console.Fail(path, opened.database->problem());
}

Json::Value JsonKinds(int mask) {
  Json::Value kinds(Json::arrayValue);
  for (const std::string& name : KindNames(mask))
    kinds.append(name);
  return kinds;
}

std::string MaskText(int mask) {
  return std::to_string(mask) + " (" + KindsText(mask) + ")";
}

std::string SizeInPixels(int width, int height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

std::string LocalTime(std::int64_t time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  std::array<char, 64> text{};
  if (localtime_r(&seconds, &parts) == nullptr) return std::to_string(time);
  const std::size_t length = std::strftime(text.data(), text.size(), "%F %T %z", &parts);
  return {text.data(), length};
}

// All that the index knows about one path.
struct Knowledge {
  bool has_database = false;
  std::optional<MaskEntry> photo_mask;
  std::optional<MaskEntry> video_mask;
  std::optional<int> version;
  std::optional<std::int64_t> finished;
  std::optional<Measured> size;
  std::optional<Measured> thumbnail;
  std::vector<MediaRecord> media;
};

bool Read(IndexDatabase& database, const std::string& key, Knowledge& known) {
  known.has_database = true;
  return database.FindMask(key, THUMB_TYPE_PHOTO, known.photo_mask) &&
         database.FindMask(key, THUMB_TYPE_VIDEO, known.video_mask) &&
         database.FindVersion(key, known.version) && database.FindFinished(key, known.finished) &&
         database.FindResolution(key, known.size) &&
         database.FindMeasuredThumbnail(key, known.thumbnail) &&
         database.ListMedia(key, known.media);
}

std::string MaskLine(const std::optional<MaskEntry>& entry, const std::string& key) {
  if (!entry) return MaskText(kAllKinds) + ", the default";
  return MaskText(entry->mask) + ", set " +
         (entry->directory == key ? "here" : "on " + ShownName(entry->directory));
}

std::string MediaLine(const MediaRecord& media) {
  std::string text = SizeInPixels(media.width, media.height);
  if (media.orientation != 0) text += ", orientation " + std::to_string(media.orientation);
  if (media.bit_rate != 0) text += ", " + Grouped(media.bit_rate) + " bit/s";
  return text + ", in media database " + std::to_string(media.database);
}

void PrintKnowledge(const std::string& key, const Knowledge& known, std::ostream& out) {
  out << ShownName(key) << "\n"
      << "  for photos:  " << MaskLine(known.photo_mask, key) << "\n"
      << "  for videos:  " << MaskLine(known.video_mask, key) << "\n";
  if (known.version) out << "  version:     " << *known.version << "\n";
  if (known.finished) out << "  finished:    " << LocalTime(*known.finished) << "\n";
  if (known.size) {
    out << "  size:        " << SizeInPixels(known.size->width, known.size->height) << "\n";
  }
  if (known.thumbnail) {
    out << "  thumbnail:   " << SizeInPixels(known.thumbnail->width, known.thumbnail->height)
        << ", " << ShownName(known.thumbnail->path) << "\n";
  }
  for (const MediaRecord& record : known.media)
    out << "  media:       " << MediaLine(record) << "\n";
}

Json::Value JsonSize(int width, int height, Json::Value value = Json::Value(Json::objectValue)) {
  value["width"] = width;
  value["height"] = height;
  return value;
}

Json::Value JsonMask(const std::optional<MaskEntry>& entry) {
  const int mask = entry ? entry->mask : kAllKinds;
  Json::Value value(Json::objectValue);
  value["mask"] = mask;
  value["kinds"] = JsonKinds(mask);
  value["set_on"] = entry ? JsonPath(entry->directory) : Json::Value();
  return value;
}

Json::Value JsonMedia(const MediaRecord& media) {
  Json::Value value = JsonSize(media.width, media.height);
  value["database"] = media.database;
  value["orientation"] = media.orientation;
  value["bit_rate"] = media.bit_rate;
  return value;
}

Json::Value JsonKnowledge(const std::string& key, const Knowledge& known) {
  Json::Value value = JsonPath(key);
  value["has_index"] = known.has_database;
  value["photo"] = JsonMask(known.photo_mask);
  value["video"] = JsonMask(known.video_mask);
  value["version"] = known.version ? Json::Value(*known.version) : Json::Value();
  value["finished"] =
      known.finished ? Json::Value(static_cast<Json::Int64>(*known.finished)) : Json::Value();
  value["size"] = known.size ? JsonSize(known.size->width, known.size->height) : Json::Value();
  value["thumbnail"] = Json::Value();
  if (known.thumbnail) {
    value["thumbnail"] =
        JsonSize(known.thumbnail->width, known.thumbnail->height, JsonPath(known.thumbnail->path));
  }
  value["media"] = Json::Value(Json::arrayValue);
  for (const MediaRecord& record : known.media)
    value["media"].append(JsonMedia(record));
  return value;
}

struct Listing {
  bool has_database = false;
  std::vector<MaskRecord> masks;
  IndexCounts counts;
};

Json::Value JsonListing(const Listing& listing) {
  Json::Value value(Json::objectValue);
  value["has_index"] = listing.has_database;
  value["masks"] = Json::Value(Json::arrayValue);
  for (const MaskRecord& record : listing.masks) {
    Json::Value item = JsonPath(record.directory);
    item["type"] = TypeName(record.type);
    item["mask"] = record.mask;
    item["kinds"] = JsonKinds(record.mask);
    value["masks"].append(item);
  }
  const IndexCounts& counts = listing.counts;
  value["files"]["with_resolution"] = static_cast<Json::Int64>(counts.resolutions);
  value["files"]["with_version"] = static_cast<Json::Int64>(counts.versions);
  value["files"]["finished"] = static_cast<Json::Int64>(counts.finished);
  value["files"]["with_media_record"] = static_cast<Json::Int64>(counts.media);
  return value;
}

void PrintListing(const Listing& listing, Console& console) {
  if (!listing.has_database) {
    console.out() << kNoDatabase;
    return;
  }
  Rows rows;
  for (const MaskRecord& record : listing.masks) {
    rows.push_back({TypeName(record.type), std::to_string(record.mask),
                    ShownName(record.directory) + ": " + KindsText(record.mask)});
  }
  constexpr std::size_t kTextColumn = 2;
  if (rows.empty()) console.out() << "No masks are set; all kinds are wanted everywhere.\n";
  console.out() << Table(rows, kTextColumn) << "\n"
                << Table({{Grouped(listing.counts.resolutions), "files with a resolution"},
                          {Grouped(listing.counts.versions), "files with an index version"},
                          {Grouped(listing.counts.finished), "files finished"},
                          {Grouped(listing.counts.media), "files with a media record"}},
                         1);
}

// Prints all masks, and how many files the index has records of. Returns the exit status.
int ListIndex(const std::string& database_path, bool json, Console& console) {
  Listing listing;
  const int status = WithDatabase(database_path, console, [&](IndexDatabase& database) {
    listing.has_database = true;
    return database.ListMasks(listing.masks) && database.CountRecords(listing.counts);
  });
  if (status != kAllWell) return status;
  if (json) {
    console.PrintJson(JsonListing(listing));
  } else {
    PrintListing(listing, console);
  }
  return kAllWell;
}

// Prints what the index knows about a file or directory. Returns the exit status.
int ShowInIndex(const std::string& database_path, const std::string& path, bool json,
                Console& console) {
  const std::string key = PathKey(path);
  Knowledge known;
  const int status = WithDatabase(
      database_path, console, [&](IndexDatabase& database) { return Read(database, key, known); });
  if (status != kAllWell) return status;
  if (json) {
    console.PrintJson(JsonKnowledge(key, known));
    return kAllWell;
  }
  if (!known.has_database) console.out() << kNoDatabase;
  PrintKnowledge(key, known, console.out());
  return kAllWell;
}

}  // namespace

void AddIndexListCommand(CLI::App& index, CommandContext& context) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* list =
      AddCommand(index, context, "list", "List all masks, and count the files in the index");
  AddJsonOption(*list, *json);
  OnRun(*list, context, [&context, json] {
    return ListIndex(context.environment.database_path, *json, context.console);
  });
}

void AddIndexShowCommand(CLI::App& index, CommandContext& context) {
  const auto path = std::make_shared<std::string>();
  const auto json = std::make_shared<bool>(false);
  CLI::App* show =
      AddCommand(index, context, "show", "Show what the index knows about a file or directory");
  AddText(*show, "PATH", *path, "The file or directory; it need not exist any more",
          {.required = true});
  AddJsonOption(*show, *json);
  SetFooter(*show, kShowExamples);
  OnRun(*show, context, [&context, path, json] {
    return ShowInIndex(context.environment.database_path, *path, *json, context.console);
  });
}

}  // namespace keldo::ctl
