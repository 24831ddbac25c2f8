#include "ctl/watch/watch_report.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ctl/console.h"

namespace keldo::ctl {
namespace {

constexpr std::size_t kMostNamed = 3;

// The photo of this name before the run; null if it was added during the run.
const PhotoState* Find(const DirectoryState& directory, const std::string& name) {
  const auto at = std::lower_bound(
      directory.photos.begin(), directory.photos.end(), name,
      [](const PhotoState& photo, const std::string& wanted) { return photo.name < wanted; });
  return at != directory.photos.end() && at->name == name ? &*at : nullptr;
}

int PresentIn(const PhotoState* photo) {
  return photo == nullptr ? 0 : photo->Count(ThumbState::kPresent);
}

bool IsComplete(const PhotoState& photo) {
  return !photo.IsFailed() && !photo.IsUnfinished();
}

// "a.jpg: is empty; b.jpg: is gone; and 12 more".
std::string ListOf(const std::vector<Trouble>& troubles) {
  std::string text;
  for (std::size_t i = 0; i < std::min(kMostNamed, troubles.size()); ++i) {
    if (i > 0) text += "; ";
    text += ShownName(troubles[i].photo) + ": " + troubles[i].reason;
  }
  if (troubles.size() > kMostNamed) {
    text += "; and " + Grouped(static_cast<long>(troubles.size() - kMostNamed)) + " more";
  }
  return text;
}

// Joins parts: "3 photos made, 1 failed". Only the first number has the word "photos".
class Sentence {
 public:
  void Add(std::size_t number, const std::string& what) {
    if (number == 0) return;
    const auto count = static_cast<long>(number);
    text_ += text_.empty() ? Counted(count, "photo") : ", " + Grouped(count);
    text_ += " " + what;
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

void AddTroubles(const std::vector<Trouble>& troubles, bool has_failed, const std::string& word,
                 Sentence& sentence) {
  std::vector<Trouble> chosen;
  std::copy_if(troubles.begin(), troubles.end(), std::back_inserter(chosen),
               [has_failed](const Trouble& trouble) { return trouble.has_failed == has_failed; });
  if (!chosen.empty()) sentence.Add(chosen.size(), word + " (" + ListOf(chosen) + ")");
}

}  // namespace

RunResult Compare(const DirectoryState& before, const DirectoryState& after) {
  RunResult result;
  result.directory = after.path;
  for (const PhotoState& photo : after.photos) {
    const int present_before = PresentIn(Find(before, photo.name));
    if (PresentIn(&photo) <= present_before) continue;
    ++result.made;
    if (present_before > 0 && IsComplete(photo)) ++result.completed;
  }
  return result;
}

bool IsProgress(const DirectoryState& before, const DirectoryState& after, time_t run_began) {
  return std::any_of(after.photos.begin(), after.photos.end(), [&](const PhotoState& photo) {
    const PhotoState* earlier = Find(before, photo.name);
    const bool was_failed = earlier != nullptr && earlier->IsFailed();
    return PresentIn(&photo) > PresentIn(earlier) ||
           (photo.IsFailed() && !was_failed && photo.failed_at >= run_began);
  });
}

std::string TextOf(const RunResult& result) {
  Sentence sentence;
  sentence.Add(static_cast<std::size_t>(result.made - result.completed), "made");
  sentence.Add(static_cast<std::size_t>(result.completed), "completed");
  AddTroubles(result.troubles, true, "failed", sentence);
  AddTroubles(result.troubles, false, "left undone", sentence);
  if (sentence.text().empty()) return {};
  return ShownName(result.directory) + ": " + sentence.text();
}

std::vector<Trouble> TroubleMemory::Update(const std::string& directory,
                                           const std::vector<Trouble>& troubles,
                                           const std::set<std::string>& changed) {
  std::map<std::string, Trouble> now;
  std::vector<Trouble> fresh;
  const std::map<std::string, Trouble>& reported = reported_[directory];
  for (const Trouble& trouble : troubles) {
    const auto known = reported.find(trouble.photo);
    const bool is_known = known != reported.end() && !changed.contains(trouble.photo) &&
                          known->second.reason == trouble.reason &&
                          known->second.bytes == trouble.bytes;
    if (!is_known) fresh.push_back(trouble);
    now[trouble.photo] = trouble;
  }
  if (now.empty()) {
    reported_.erase(directory);
  } else {
    reported_[directory] = std::move(now);
  }
  return fresh;
}

}  // namespace keldo::ctl
