#include "ctl/gallery/page_data.h"

#include <unistd.h>

#include <string_view>
#include <utility>

#include "ctl/console.h"
#include "ctl/gallery/page_text.h"
#include "ctl/library/diagnosis.h"
#include "thumbs/metadata_names.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

void AppendTo(std::string& list, std::string_view member) {
  if (!list.empty()) list += ',';
  list += member;
}

std::string Member(std::size_t key, std::string_view value) {
  return "\"" + std::to_string(key) + "\":" + std::string(value);
}

char LetterOf(ThumbState state) {
  switch (state) {
    case ThumbState::kPresent:
      return 'p';
    case ThumbState::kMissing:
      return 'm';
    case ThumbState::kStale:
      return 's';
    case ThumbState::kFailed:
      return 'f';
    case ThumbState::kUnwanted:
      break;
  }
  return '-';
}

// One letter per kind; a capital when only the colon spelling of the name exists.
std::string SetOf(const std::string& directory, const PhotoState& photo) {
  std::string set;
  const std::string metadata = directory + "/" + kMetadataDirectory + "/" + photo.name + "/";
  for (const ThumbKindInfo& kind : kKindsBySize) {
    const ThumbState state = photo.thumbs.at(static_cast<std::size_t>(kind.kind));
    const bool is_there = state == ThumbState::kPresent || state == ThumbState::kStale;
    const bool has_colon =
        is_there && ::access((metadata + kind.underscore_name).c_str(), F_OK) != 0;
    set += static_cast<char>(has_colon ? LetterOf(state) - 'a' + 'A' : LetterOf(state));
  }
  return set;
}

std::string KindsJson() {
  std::string json;
  for (const ThumbKindInfo& kind : kKindsBySize) {
    AppendTo(json, R"({"name":)" + ScriptString(kind.short_name) + R"(,"box":)" +
                       std::to_string(BoxSide(kind)) + R"(,"file":)" +
                       ScriptString(UrlPath(kind.underscore_name)) + R"(,"older":)" +
                       ScriptString(UrlPath(kind.colon_name)) + "}");
  }
  return json;
}

std::string StringsJson(const std::vector<std::string>& texts) {
  std::string json;
  for (const std::string& text : texts)
    AppendTo(json, ScriptString(text));
  return json;
}

bool IsBelow(const std::string& directory, const std::string& above) {
  return above.empty() || above == "/" || directory.starts_with(above + "/");
}

}  // namespace

PageData::PageData(std::string page_directory, std::vector<std::string> roots)
    : page_directory_(std::move(page_directory)),
      roots_(std::move(roots)),
      names_below_(DirectoryAbove(roots_)) {}

int PageData::Numbered::NumberOf(const std::string& text) {
  const auto [entry, is_new] = number_of.try_emplace(text, static_cast<int>(texts.size()));
  if (is_new) texts.push_back(text);
  return entry->second;
}

void PageData::Add(const DirectoryState& directory) {
  Folder folder;
  folder.name = ScriptString(ShownName(NameBelow(names_below_, directory.path)));
  folder.url = ScriptString(RelativeUrl(page_directory_, directory.path));
  // Only "/" ends in a slash.
  const std::string path = directory.path == "/" ? "" : directory.path;
  for (std::size_t at = 0; at < directory.photos.size(); ++at)
    AddPhoto(folder, path, directory.photos[at], at);
  counts_.Add(CountsOf(directory));
  folders_.push_back(std::move(folder));
}

void PageData::AddPhoto(Folder& folder, const std::string& directory, const PhotoState& photo,
                        std::size_t at) {
  const std::string shown = ShownName(photo.name);
  const std::string url = UrlPath(photo.name);
  AppendTo(folder.names, ScriptString(shown));
  if (url != shown) AppendTo(folder.urls, Member(at, ScriptString(url)));
  AppendTo(folder.sets, std::to_string(sets_.NumberOf(SetOf(directory, photo))));
  AppendTo(folder.bytes, std::to_string(photo.bytes));
  AppendTo(folder.changed, std::to_string(photo.changed));
  if (!photo.IsFailed() && !photo.IsUnfinished()) return;
  const std::string path = JoinPath(directory, photo.name);
  const std::string reason = photo.IsFailed() ? WhyFailed(path) : WhyUnfinished(path);
  AppendTo(folder.why, Member(at, std::to_string(reasons_.NumberOf(ShownName(reason)))));
}

std::string PageData::JsonOf(const Folder& folder) {
  return R"({"name":)" + folder.name + R"(,"url":)" + folder.url + ",\n\"names\":[" + folder.names +
         "],\n\"urls\":{" + folder.urls + "},\n\"sets\":[" + folder.sets + "],\n\"why\":{" +
         folder.why + "},\n\"bytes\":[" + folder.bytes + "],\n\"changed\":[" + folder.changed +
         "]}\n";
}

std::string PageData::Json(std::time_t made, bool partial) const {
  std::string folders;
  for (const Folder& folder : folders_)
    AppendTo(folders, JsonOf(folder));
  std::vector<std::string> roots;
  for (const std::string& root : roots_)
    roots.push_back(ShownName(root));
  return R"({"made":)" + std::to_string(made) + R"(,"partial":)" + (partial ? "true" : "false") +
         ",\n\"roots\":[" + StringsJson(roots) + "],\n\"kinds\":[" + KindsJson() +
         "],\n\"sets\":[" + StringsJson(sets_.texts) + "],\n\"reasons\":[" +
         StringsJson(reasons_.texts) + "],\n\"folders\":[" + folders + "]}\n";
}

std::string DirectoryAbove(const std::vector<std::string>& roots) {
  std::string above(ParentOfKey(roots.front()));
  for (const std::string& root : roots) {
    while (!IsBelow(root, above) || root == above) {
      above = ParentOfKey(above);
    }
  }
  return above;
}

std::string NameBelow(const std::string& above, const std::string& directory) {
  std::string name = directory.substr(above.size());
  if (name.size() > 1 && name.front() == '/') name.erase(0, 1);
  return name;
}

}  // namespace keldo::ctl
