// The profile file: which thumbnails are made, how, and in which phase.
#pragma once

#include <sys/stat.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keldo {

/// Selects the profiles of all phases; so does every selector other than 0, 1 and 2.
inline constexpr int PHASE_ALL = -1;

/// One thumbnail to make, as the profile file describes it.
class ThumbProfile {
 public:
  /// What a section of the profile file says.
  struct Settings {
    int size = 120;    ///< Pixels, the side of the square box.
    int quality = 80;  ///< JPEG quality.
    std::string unsharp;
    std::string filename;
    int phase = 0;
  };

  explicit ThumbProfile(Settings settings);

  [[nodiscard]] int size() const { return settings_.size; }
  [[nodiscard]] int quality() const { return settings_.quality; }
  /// The converter's sharpening argument as written in the file; empty for none.
  [[nodiscard]] std::string unsharp() const { return settings_.unsharp; }
  /// The thumbnail's file name as written in the file.
  [[nodiscard]] std::string filename() const { return settings_.filename; }
  /// The file name in the underscore spelling, under which the thumbnail is made.
  [[nodiscard]] std::string eaFilename() const { return ea_filename_; }
  [[nodiscard]] int phase() const { return settings_.phase; }
  /// True for the kinds that fill their box.
  [[nodiscard]] bool primaryKind() const { return primary_kind_; }

 private:
  Settings settings_;
  std::string ea_filename_;
  bool primary_kind_;
};

/// An existing thumbnail: where it is and its status.
struct FoundThumbnail {
  std::string path;
  struct stat status;
};

/// Looks for the profile's thumbnail in a metadata directory: first under `eaFilename`, then under
/// the name as written, so that a colon-spelled one is found too. Silent.
[[nodiscard]] std::optional<FoundThumbnail> FindThumbnail(const ThumbProfile& profile,
                                                          const std::string& ea_dir);

/// The profiles that the index wants for one directory, from the smallest to the largest.
class ThumbProfileList {
 public:
  /// Loads `profile_path` for the photos of `directory`: the "thumb*" sections whose kind the index
  /// wants there. Returns non-zero on success; 0 when the file cannot be read or parsed, and the
  /// list stays empty (silent: the caller reports it). To be called once.
  [[nodiscard]] int load(const std::string& profile_path, const std::string& directory);

  /// Number of profiles of a phase (0, 1 or 2; any other selector: all).
  [[nodiscard]] std::size_t count(int phase) const { return Select(phase).size(); }

  /// The profile at `index` of a phase, null from `count` on. `at(count(0) - 1, 0)` is the base
  /// profile, whose thumbnail is the source of the later phases; with no profile it is null too.
  [[nodiscard]] const ThumbProfile* at(std::size_t index, int phase) const;

 private:
  using Sequence = std::vector<const ThumbProfile*>;

  [[nodiscard]] const Sequence& Select(int phase) const;
  void SortBySize();

  std::vector<std::unique_ptr<const ThumbProfile>> records_;
  Sequence all_;
  std::array<Sequence, 3> by_phase_;
};

/// One target directory and the profiles read for it. The per-path entry owns both and keeps them
/// alive until the job returns.
struct ThumbJob {
  std::string path;  ///< Exactly as it came from the command line or the walk.
  const ThumbProfileList* profiles = nullptr;
};

}  // namespace keldo
