#include "thumbs/thumb_profile.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/conf_parser.h"
#include "platform/index_ipc.h"
#include "platform/text.h"
#include "thumbs/thumb_kinds.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr const char* kSectionPrefix = "thumb";

std::string ToUnderscoreSpelling(std::string name) {
  std::replace(name.begin(), name.end(), ':', '_');
  return name;
}

bool FillsBox(const std::string& ea_filename) {
  const ThumbKindInfo* kind = FindKind(ea_filename);
  return kind != nullptr && kind->fills_box;
}

ThumbProfile::Settings ReadSection(const KELDOUtils::ConfParser& parser,
                                   const std::string& section) {
  ThumbProfile::Settings settings;
  settings.size = parser.getInt(section, "size", settings.size);
  settings.quality = parser.getInt(section, "quality", settings.quality);
  settings.unsharp = parser.getString(section, "unsharp", "");
  settings.filename = parser.getString(section, "filename", "");
  settings.phase = parser.getInt(section, "phase", settings.phase);
  return settings;
}

}  // namespace

ThumbProfile::ThumbProfile(Settings settings)
    : settings_(std::move(settings)),
      ea_filename_(ToUnderscoreSpelling(settings_.filename)),
      primary_kind_(FillsBox(ea_filename_)) {}

std::optional<FoundThumbnail> FindThumbnail(const ThumbProfile& profile,
                                            const std::string& ea_dir) {
  for (const std::string& name : {profile.eaFilename(), profile.filename()}) {
    FoundThumbnail found{JoinPath(ea_dir, name), {}};
    if (stat(found.path.c_str(), &found.status) == 0) return found;
  }
  return std::nullopt;
}

int ThumbProfileList::load(const std::string& profile_path, const std::string& directory) {
  ThumbSizeMask mask = 0;
  // When the index does not answer, the mask stays 0 and nothing is made for this directory.
  keldoindexutils::ipc::KELDOIDX_GetDirThumbSizeMap(directory.c_str(), THUMB_TYPE_PHOTO, &mask);

  KELDOUtils::ConfParser parser;
  const int loaded = parser.loadFromFile(profile_path.c_str());
  if (loaded == 0) return 0;

  for (const std::string& section : parser.enumSections()) {
    if (!keldoindexutils::StartWith(section, kSectionPrefix)) continue;
    ThumbProfile::Settings settings = ReadSection(parser, section);
    if (settings.filename.empty() || !IsKindWanted(settings.filename, mask)) continue;
    records_.push_back(std::make_unique<const ThumbProfile>(std::move(settings)));
  }
  SortBySize();
  return loaded;
}

// Sizes compare as unsigned numbers on purpose: a negative one is the largest, so that a slip in
// the file does not make it the first link of the chain of small thumbnails.
void ThumbProfileList::SortBySize() {
  std::sort(records_.begin(), records_.end(), [](const auto& a, const auto& b) {
    return static_cast<std::uint32_t>(a->size()) < static_cast<std::uint32_t>(b->size());
  });
  for (const auto& record : records_) {
    const int phase = record->phase();
    all_.push_back(record.get());
    by_phase_[phase == 1 || phase == 2 ? static_cast<std::size_t>(phase) : 0].push_back(
        record.get());
  }
}

const ThumbProfile* ThumbProfileList::at(std::size_t index, int phase) const {
  const Sequence& sequence = Select(phase);
  return index < sequence.size() ? sequence[index] : nullptr;
}

const ThumbProfileList::Sequence& ThumbProfileList::Select(int phase) const {
  return phase >= 0 && phase <= 2 ? by_phase_[static_cast<std::size_t>(phase)] : all_;
}

}  // namespace keldo
