// What the gallery's page knows about the photos.
#pragma once

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "ctl/library/photo_scan.h"

namespace keldo::ctl {

/// Collects the photos of a library as the JSON that the page's script reads (page_library.js).
///
/// A photo costs some forty bytes: what many photos share (the folder's address, the states of the
/// thumbnails, the reasons) is written once, and an address only if it differs from the name.
class PageData {
 public:
  /// `page_directory` is where the page will be; it and the roots are as PathKey returns them.
  PageData(std::string page_directory, std::vector<std::string> roots);

  /// Adds a directory's photos, and finds out why thumbnails are missing.
  void Add(const DirectoryState& directory);

  [[nodiscard]] const LibraryCounts& counts() const { return counts_; }
  [[nodiscard]] int folders() const { return static_cast<int>(folders_.size()); }

  /// The JSON text, for use inside a <script> element. `partial`: not everything could be read.
  [[nodiscard]] std::string Json(std::time_t made, bool partial) const;

 private:
  // The JSON members of one folder, without their brackets.
  struct Folder {
    std::string name;
    std::string url;
    std::string names;
    std::string urls;
    std::string sets;
    std::string why;
    std::string bytes;
    std::string changed;
  };
  // Texts, numbered in the order in which they come up.
  struct Numbered {
    std::map<std::string, int> number_of;
    std::vector<std::string> texts;
    int NumberOf(const std::string& text);
  };

  void AddPhoto(Folder& folder, const std::string& directory, const PhotoState& photo,
                std::size_t at);
  static std::string JsonOf(const Folder& folder);

  std::string page_directory_;
  std::vector<std::string> roots_;
  std::string names_below_;  // Folders are named relative to this one.
  LibraryCounts counts_;
  std::vector<Folder> folders_;
  Numbered sets_;
  Numbered reasons_;
};

/// The directory that folder names are relative to, so that each begins with the name of its root:
/// "/v/photo" gives "/v", also together with "/v/scans/old"; "/" gives "".
[[nodiscard]] std::string DirectoryAbove(const std::vector<std::string>& roots);

/// "/v/photo/2024" relative to "/v": "photo/2024".
[[nodiscard]] std::string NameBelow(const std::string& above, const std::string& directory);

}  // namespace keldo::ctl
