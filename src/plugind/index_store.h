// What the daemon needs of the index, so that answering can be tested without a database.
#pragma once

#include <optional>
#include <string_view>

#include "platform/index_ipc.h"
#include "platform/media_info.h"

namespace keldo::plugind {

/// The index as the requests see it. Paths are absolute and otherwise as the client sent them.
class IndexStore {
 public:
  IndexStore() = default;
  virtual ~IndexStore() = default;
  IndexStore(const IndexStore&) = delete;
  IndexStore& operator=(const IndexStore&) = delete;

  /// The index version of a file; 0 for one that the index does not know.
  [[nodiscard]] virtual int Version(std::string_view path) = 0;

  /// Notes that the work on a file is finished, at this time. Its version stays: a version says
  /// that the index itself has taken the file in, and new thumbnails then follow the existing ones
  /// instead of the photo's orientation tag. False when it could not be noted.
  [[nodiscard]] virtual bool AddFinished(std::string_view path) = 0;

  /// Whether conversion is switched on; true unless somebody switched it off.
  [[nodiscard]] virtual bool IsConversionOn(_tag_THUMB_TYPE_ type) = 0;

  /// The record of a file in the database that `database` names (1: videos). None when the index
  /// does not know the file.
  [[nodiscard]] virtual std::optional<keldoindexutils::MediaInfo> FindMedia(std::string_view path,
                                                                            int database) = 0;
};

}  // namespace keldo::plugind
