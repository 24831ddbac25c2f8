#include "ctl/make/make_report.h"

#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/library/diagnosis.h"
#include "ctl/library/work_queue_file.h"
#include "process/startup.h"
#include "thumbs/paths.h"

namespace keldo::ctl {
namespace {

using std::chrono::seconds;

constexpr seconds kPlainLineEvery{10};
constexpr const char* kRewrite = "\r\033[K";
constexpr int kMinute = 60;
constexpr int kHour = 3600;

double SecondsOf(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

std::string OneDecimal(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

std::string TimeText(double time) {
  const long whole = std::lround(time);
  if (whole < kMinute) return std::to_string(whole) + " s";
  if (whole < kHour) return std::to_string((whole + kMinute / 2) / kMinute) + " min";
  return std::to_string(whole / kHour) + " h " + std::to_string(whole % kHour / kMinute) + " min";
}

// A photo without all its thumbnails.
struct Undone {
  std::string path;
  std::string reason;
};

struct UndonePhotos {
  std::vector<Undone> failed;
  std::vector<Undone> unfinished;
};

UndonePhotos FindUndone(const std::vector<DirectoryState>& directories) {
  UndonePhotos undone;
  for (const DirectoryState& directory : directories) {
    for (const PhotoState& photo : directory.photos) {
      const std::string path = PathOf(directory, photo);
      if (photo.IsFailed()) undone.failed.push_back({path, WhyFailed(path)});
      if (photo.IsUnfinished()) undone.unfinished.push_back({path, WhyUnfinished(path)});
    }
  }
  return undone;
}

Json::Value ListOf(const std::vector<Undone>& photos) {
  Json::Value list(Json::arrayValue);
  for (const Undone& photo : photos) {
    Json::Value entry = JsonPath(photo.path);
    entry["reason"] = photo.reason;
    list.append(entry);
  }
  return list;
}

void PrintJsonSummary(Console& console, const MakeOutcome& outcome, const LibraryCounts& counts,
                      const UndonePhotos& undone) {
  Json::Value value(Json::objectValue);
  value["photos"] = counts.photos;
  value["thumbnails"] = counts.Thumbs(ThumbState::kPresent);
  value["thumbnails_made"] = outcome.progress.thumbs_made;
  value["seconds"] = SecondsOf(outcome.progress.elapsed);
  value["stopped"] = outcome.stopped;
  value["failed"] = ListOf(undone.failed);
  value["unfinished"] = ListOf(undone.unfinished);
  console.PrintJson(value);
}

void PrintList(Console& console, const char* heading, const std::vector<Undone>& photos) {
  if (photos.empty()) return;
  console.out() << console.Coloured(Console::Colour::kRed, heading) << "\n";
  for (const Undone& photo : photos)
    console.out() << "  " << ShownName(photo.path) << ": " << photo.reason << "\n";
}

void PrintTextSummary(Console& console, const MakeOutcome& outcome, const LibraryCounts& counts,
                      const UndonePhotos& undone) {
  const MakeProgress& progress = outcome.progress;
  const double time = SecondsOf(progress.elapsed);
  if (!console.style().quiet) {
    console.out() << "Photos:     " << Grouped(counts.photos) << " in "
                  << Counted(static_cast<long>(outcome.directories.size()), "folder") << "\n"
                  << "Thumbnails: " << Grouped(progress.thumbs_made) << " made, "
                  << Grouped(counts.Thumbs(ThumbState::kPresent)) << " present now\n"
                  << "Time:       " << OneDecimal(time) << " s";
    if (progress.thumbs_made > 0 && time > 0) {
      console.out() << ", " << OneDecimal(progress.thumbs_made / time) << " thumbnails/s";
    }
    console.out() << "\n";
  }
  PrintList(console, "Failed:", undone.failed);
  if (!undone.failed.empty() && !console.style().quiet) {
    console.out()
        << "A photo is tried again when it changes; 'keldothumbctl retry' tries all of them.\n";
  }
  PrintList(console, "Not finished:", undone.unfinished);
}

// keldothumb queued the directories before their last thumbnails were made. Each is scanned once
// more, for photos that were added meanwhile and for kinds that the index wants but this run was
// not asked to make.
void TakeOutOfQueue(const MakeOutcome& outcome, Console& console) {
  // A user who may not write to the queue has not added anything to it.
  if (::access(paths::kThumbQueue, W_OK) != 0) return;
  PhotoScanner scanner;
  std::set<std::string> worked_on;
  for (const DirectoryState& directory : outcome.directories)
    worked_on.insert(directory.path);
  const auto is_done = [&](const std::string& line) {
    return worked_on.contains(line) && scanner.Scan(line).IsFinished();
  };
  if (!RemoveFromQueueIf(paths::kThumbQueue, is_done)) {
    console.Fail(paths::kThumbQueue, std::strerror(errno));
  }
}

}  // namespace

std::string ProgressText(const MakeProgress& progress) {
  const double elapsed = SecondsOf(progress.elapsed);
  std::string text = Grouped(progress.photos_done) + " of " +
                     Counted(progress.photos_total, "photo") + ", " +
                     Grouped(progress.photos_failed) + " failed";
  if (progress.folders_locked > 0) {
    text += ", " + Counted(progress.folders_locked, "folder") + " in use by another run";
  }
  if (progress.thumbs_made == 0 || elapsed <= 0) return text;
  const double per_second = progress.thumbs_made / elapsed;
  // Photos that were added meanwhile are not in the total.
  const int left = std::max(0, progress.thumbs_total - progress.thumbs_made);
  return text + ", " + OneDecimal(per_second) + " thumbnails/s, " + TimeText(left / per_second) +
         " left";
}

void ProgressLine::Show(const MakeProgress& progress) {
  if (console_.style().quiet) return;
  if (console_.style().live_progress) {
    console_.err() << kRewrite << ProgressText(progress) << std::flush;
    shown_ = true;
  } else if (progress.elapsed - last_line_ >= kPlainLineEvery) {
    console_.err() << ProgressText(progress) << "\n" << std::flush;
    last_line_ = progress.elapsed;
  }
}

void ProgressLine::Clear() {
  if (shown_) console_.err() << kRewrite << std::flush;
  shown_ = false;
}

MakeOutcome MakeWithProgress(const MakeOptions& options, PhotoScanner& scanner,
                             std::vector<DirectoryState> directories, Console& console) {
  const process::StopSignals signals;
  ProgressLine line(console);
  Maker maker(options, scanner, signals.fd(),
              [&line](const MakeProgress& progress) { line.Show(progress); });
  MakeOutcome outcome = maker.Run(std::move(directories));
  line.Clear();
  TakeOutOfQueue(outcome, console);
  return outcome;
}

int ReportOutcome(Console& console, const MakeOutcome& outcome, bool json) {
  LibraryCounts counts;
  for (const DirectoryState& directory : outcome.directories)
    counts.Add(CountsOf(directory));
  // A run that was stopped lists only failures; why it left the rest is obvious.
  UndonePhotos undone = FindUndone(outcome.directories);
  const std::size_t unfinished = undone.unfinished.size();
  if (outcome.stopped && !json) undone.unfinished.clear();

  if (json) {
    PrintJsonSummary(console, outcome, counts, undone);
  } else {
    PrintTextSummary(console, outcome, counts, undone);
  }
  bool all_read = true;
  for (const DirectoryState& directory : outcome.directories) {
    if (directory.error == 0) continue;
    all_read = false;
    console.Fail(directory.path, std::strerror(directory.error));
  }
  for (const RunTrouble& trouble : outcome.troubles)
    console.Fail(trouble.directory, trouble.text);
  if (!outcome.problem.empty()) console.Warn(outcome.problem);
  if (outcome.stopped) {
    console.Warn("stopped; " + Counted(static_cast<long>(unfinished), "photo") + " left undone");
  }
  return undone.failed.empty() && unfinished == 0 && all_read ? 0 : 1;
}

}  // namespace keldo::ctl
