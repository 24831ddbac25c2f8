#include "ctl/commands/index_mask.h"

#include <json/value.h>

#include <optional>
#include <ostream>

#include "ctl/commands/mask_text.h"
#include "index/index_database.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "util/json_line.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

using index::IndexDatabase;
using index::MaskEntry;
using Action = IndexMaskRequest::Action;

int TypeOf(const IndexMaskRequest& request) {
  return request.video ? THUMB_TYPE_VIDEO : THUMB_TYPE_PHOTO;
}

// Opens what the action needs: only setting a mask makes a database, and without one there is
// nothing to show or to remove.
IndexDatabase::OpenResult OpenFor(Action action, const std::string& database_path) {
  return action == Action::kSet ? IndexDatabase::OpenOrCreate(database_path)
                                : IndexDatabase::Open(database_path);
}

bool Change(IndexDatabase& database, const IndexMaskRequest& request, const std::string& key) {
  switch (request.action) {
    case Action::kSet:
      return database.SetMask(key, TypeOf(request), request.mask);
    case Action::kRemove:
      return database.RemoveMask(key, TypeOf(request));
    case Action::kShow:
      break;
  }
  return true;
}

void PrintText(const std::string& key, const std::optional<MaskEntry>& entry, std::ostream& out) {
  const int mask = entry ? entry->mask : kAllKinds;
  out << key << ": " << mask << " (" << KindsText(mask) << "), ";
  if (!entry) {
    out << "the default\n";
  } else if (entry->directory == key) {
    out << "set here\n";
  } else {
    out << "inherited from " << entry->directory << "\n";
  }
}

void PrintJson(const IndexMaskRequest& request, const std::string& key,
               const std::optional<MaskEntry>& entry, std::ostream& out) {
  const int mask = entry ? entry->mask : kAllKinds;
  Json::Value value(Json::objectValue);
  value["directory"] = key;
  value["type"] = request.video ? "video" : "photo";
  value["mask"] = mask;
  value["kinds"] = Json::Value(Json::arrayValue);
  for (const std::string& name : KindNames(mask))
    value["kinds"].append(name);
  value["set_on"] = entry ? Json::Value(entry->directory) : Json::Value();
  out << JsonLine(value) << "\n";
}

void Print(const IndexMaskRequest& request, const std::string& key,
           const std::optional<MaskEntry>& entry, std::ostream& out) {
  if (request.json) {
    PrintJson(request, key, entry, out);
  } else {
    PrintText(key, entry, out);
  }
}

int Fail(std::ostream& err, const std::string& path, const std::string& problem) {
  err << "keldothumbctl: " << path << ": " << problem << "\n";
  return 1;
}

}  // namespace

int RunIndexMask(const IndexMaskRequest& request, const std::string& database_path,
                 std::ostream& out, std::ostream& err) {
  // A mistyped directory would be kept without ever having an effect. A mask of one that is gone
  // can still be shown and removed.
  if (request.action == Action::kSet && !keldoindexutils::stat::DoesDirExist(request.directory)) {
    return Fail(err, request.directory, "no such directory");
  }
  const std::string key = PathKey(request.directory);
  std::optional<MaskEntry> entry;
  const auto opened = OpenFor(request.action, database_path);
  if (!opened.database && !opened.missing) return Fail(err, database_path, opened.problem);
  if (opened.database && (!Change(*opened.database, request, key) ||
                          !opened.database->FindMask(key, TypeOf(request), entry))) {
    return Fail(err, database_path, opened.database->problem());
  }
  Print(request, key, entry, out);
  return 0;
}

}  // namespace keldo::ctl
