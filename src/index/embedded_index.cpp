#include "index/embedded_index.h"

#include <memory>
#include <optional>

#include "thumbs/paths.h"
#include "util/path.h"

namespace keldo::index {
namespace {

struct EmbeddedIndex {
  std::string path = paths::kIndexDatabase;
  bool looked_for = false;
  std::unique_ptr<IndexDatabase> database;
};

EmbeddedIndex& Index() {
  static EmbeddedIndex index;
  return index;
}

IndexDatabase* Database() {
  EmbeddedIndex& index = Index();
  if (!index.looked_for) {
    index.looked_for = true;
    index.database = IndexDatabase::Open(index.path).database;
  }
  return index.database.get();
}

}  // namespace

int WantedKinds(std::string_view directory, int type) {
  IndexDatabase* database = Database();
  if (database == nullptr) return kAllKinds;
  std::optional<MaskEntry> entry;
  if (!database->FindMask(PathKey(directory), type, entry) && !database->was_busy()) {
    Index().database.reset();  // damaged, or not ours to read: it will not get better
  }
  return entry ? entry->mask : kAllKinds;
}

void NoteResolution(const Measured& photo, const Measured& thumbnail) {
  IndexDatabase* database = Database();
  if (database == nullptr) return;
  // A database that we may only read still tells the masks, so it is kept whatever comes of this.
  static_cast<void>(
      database->SetResolution({PathKey(photo.path), photo.width, photo.height},
                              {PathKey(thumbnail.path), thumbnail.width, thumbnail.height}));
}

void UseIndexAt(const std::string& path) {
  Index() = EmbeddedIndex{.path = path, .looked_for = false, .database = nullptr};
}

}  // namespace keldo::index
