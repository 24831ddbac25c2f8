// The programs that make thumbnails.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "ctl/commands/doctor.h"
#include "process/output.h"
#include "util/text.h"

namespace keldo::ctl {
namespace {

using Level = CheckResult::Level;
using process::ProgramOutput;

// What a program printed, or why it cannot be used.
struct Probe {
  std::string problem;
  ProgramOutput output;
};

Probe Try(const std::string& program, const std::vector<std::string>& arguments,
          const DoctorPaths& paths) {
  if (::access(program.c_str(), F_OK) != 0) return {"is missing", {}};
  if (::access(program.c_str(), X_OK) != 0) return {"cannot be executed", {}};
  ProgramOutput output = process::RunForOutput(program, arguments, paths.deadline);
  const std::string problem = output.problem.empty() ? "" : "cannot be run: " + output.problem;
  return {problem, std::move(output)};
}

CheckResult Missing(const char* name, const std::string& path, const Probe& probe, Level level,
                    const char* advice) {
  return {name, level, ShownName(path) + ": " + probe.problem, advice};
}

CheckResult CheckKeldothumb(const DoctorPaths& paths) {
  constexpr const char* kName = "keldothumb";
  constexpr const char* kAdvice = "reinstall keldothumb next to keldothumbctl";
  const Probe probe = Try(paths.keldothumb, {}, paths);
  if (!probe.problem.empty()) {
    return Missing(kName, paths.keldothumb, probe, Level::kProblem, kAdvice);
  }
  // Without arguments it has nothing to do and exits with status 1.
  if (probe.output.status != 1) {
    return {kName, Level::kProblem,
            ShownName(paths.keldothumb) + ": exits with status " +
                std::to_string(probe.output.status) + " instead of 1",
            kAdvice};
  }
  return {kName, Level::kOk, ShownName(paths.keldothumb), {}};
}

// "Version: ImageMagick 6.9.11-60 Q16 x86_64 ..." gives "ImageMagick 6.9.11-60".
std::string VersionOf(const ProgramOutput& output) {
  constexpr std::string_view kStart = "Version: ";
  constexpr int kWords = 2;
  std::string line = output.FirstLine();
  std::string_view version = line;
  if (!version.starts_with(kStart)) return line;
  version.remove_prefix(kStart.size());
  std::size_t end = 0;
  for (int word = 0; word < kWords && end != std::string_view::npos; ++word)
    end = version.find(' ', word == 0 ? 0 : end + 1);
  return std::string(version.substr(0, end));
}

// True when the list of formats has this one as readable: "     HEIC* HEIC      rw+   Apple ...".
bool CanRead(std::string_view formats, std::string_view name) {
  while (!formats.empty()) {
    std::string_view line = TakeLine(formats);
    std::vector<std::string_view> words;
    while (words.size() < 3) {
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      if (line.empty()) break;
      words.push_back(line.substr(0, line.find(' ')));
      line.remove_prefix(words.back().size());
    }
    if (words.size() < 3) continue;
    if (words[0].ends_with('*')) words[0].remove_suffix(1);
    if (words[0] == name && words[2].starts_with('r')) return true;
  }
  return false;
}

constexpr const char* kHeicName = "HEIC photos";
constexpr const char* kReadsHeic = "the converter reads them";
constexpr const char* kReadsNoHeic = "the converter cannot read them";

CheckResult CheckHeicOfMagick(const DoctorPaths& paths) {
  const Probe probe = Try(paths.converter, {"-list", "format"}, paths);
  if (probe.problem.empty() && CanRead(probe.output.text, "HEIC")) {
    return {kHeicName, Level::kOk, kReadsHeic, {}};
  }
  return {kHeicName, Level::kWarning, kReadsNoHeic,
          "install an ImageMagick with HEIC support; Debian: libmagickcore-6.q16-6-extra"};
}

// Our converter prints the formats that it reads with its version.
CheckResult CheckOurHeic(const ProgramOutput& version) {
  if (version.text.find(" HEIC") != std::string::npos) {
    return {kHeicName, Level::kOk, kReadsHeic, {}};
  }
  return {kHeicName, Level::kWarning, kReadsNoHeic, "install libheif; Debian: libheif1"};
}

// "16KP" in "  Width: 16KP", as a number; nothing when there is no such line.
std::optional<double> LimitOf(std::string_view resources, std::string_view name) {
  while (!resources.empty()) {
    std::string_view line = TakeLine(resources);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    if (!line.starts_with(name) || line.substr(name.size(), 2) != ": ") continue;
    line.remove_prefix(name.size() + 2);
    double number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc()) return std::nullopt;  // "unlimited"
    const std::string_view unit(end, static_cast<std::size_t>(line.data() + line.size() - end));
    constexpr std::string_view kUnits = "KMGTPE";
    const std::size_t steps = unit.empty() ? std::string_view::npos : kUnits.find(unit[0]);
    const double step = unit.find('i') == std::string_view::npos ? 1000 : 1024;
    // "16P" is 16 pixels: the letter alone is not a multiplier.
    if (steps != std::string_view::npos && unit.size() > 1) {
      for (std::size_t i = 0; i <= steps; ++i)
        number *= step;
    }
    return number;
  }
  return std::nullopt;
}

CheckResult CheckLimits(const DoctorPaths& paths) {
  constexpr const char* kName = "converter limits";
  constexpr double kLongestSide = 16'000;
  constexpr double kDisk = 1024.0 * 1024 * 1024;
  const ProgramOutput output = Try(paths.converter, {"-list", "resource"}, paths).output;
  const auto is_below = [&](const char* name, double least) {
    const std::optional<double> limit = LimitOf(output.text, name);
    return limit && *limit < least;
  };
  std::string low;
  if (is_below("Width", kLongestSide) || is_below("Height", kLongestSide)) {
    low = "photos with a side of 16,000 pixels or less are rejected";
  } else if (is_below("Disk", kDisk)) {
    low = "a photo may use less than 1 GiB of disk, and large ones need more";
  }
  if (low.empty()) return {kName, Level::kOk, "large photos are accepted", {}};
  return {kName, Level::kWarning, low, "raise the limits in ImageMagick's policy.xml"};
}

std::vector<CheckResult> CheckConverter(const DoctorPaths& paths) {
  constexpr const char* kName = "converter";
  const Probe probe = Try(paths.converter, {"--version"}, paths);
  if (!probe.problem.empty()) {
    return {Missing(kName, paths.converter, probe, Level::kProblem,
                    "install the converter, or link the path to ImageMagick's convert")};
  }
  const std::string version = VersionOf(probe.output);
  if (probe.output.status != 0 || version.empty()) {
    return {{kName, Level::kProblem,
             ShownName(paths.converter) + ": '--version' exits with status " +
                 std::to_string(probe.output.status),
             "reinstall the converter"}};
  }
  const bool is_magick = version.starts_with("ImageMagick");
  const std::string what = is_magick ? version : "our own: " + version;
  std::vector<CheckResult> results{
      {kName, Level::kOk, ShownName(paths.converter) + ", " + ShownName(what), {}}};
  results.push_back(is_magick ? CheckHeicOfMagick(paths) : CheckOurHeic(probe.output));
  if (is_magick) results.push_back(CheckLimits(paths));
  return results;
}

CheckResult CheckDjpeg(const DoctorPaths& paths) {
  constexpr const char* kName = "djpeg";
  constexpr const char* kAdvice =
      "install libjpeg-turbo-progs 2 or newer; until then large JPEG files take several times as "
      "long";
  const Probe version = Try(paths.djpeg, {"-version"}, paths);
  if (!version.problem.empty()) {
    return Missing(kName, paths.djpeg, version, Level::kWarning, kAdvice);
  }
  const Probe help = Try(paths.djpeg, {"-help"}, paths);
  if (help.output.text.find("-icc ") == std::string::npos) {
    return {kName, Level::kWarning, ShownName(paths.djpeg) + ": cannot extract colour profiles",
            kAdvice};
  }
  return {
      kName, Level::kOk, ShownName(paths.djpeg) + ", " + ShownName(version.output.FirstLine()), {}};
}

CheckResult CheckPresent(const char* name, const std::string& path, const DoctorPaths& paths,
                         const std::vector<std::string>& arguments, const char* advice) {
  const Probe probe = Try(path, arguments, paths);
  if (!probe.problem.empty()) return Missing(name, path, probe, Level::kWarning, advice);
  return {name, Level::kOk, ShownName(path) + ", " + ShownName(VersionOf(probe.output)), {}};
}

}  // namespace

std::vector<CheckResult> CheckPrograms(const DoctorPaths& paths) {
  std::vector<CheckResult> results{CheckKeldothumb(paths)};
  for (CheckResult& result : CheckConverter(paths))
    results.push_back(std::move(result));
  results.push_back(CheckDjpeg(paths));
  results.push_back(CheckPresent("dcraw", paths.dcraw, paths, {},
                                 "install dcraw; without it X3F photos get no thumbnails"));
  results.push_back(CheckPresent(
      "compare", paths.compare, paths, {"-version"},
      "install ImageMagick; without it photos that were rotated by hand may be rotated back"));
  return results;
}

}  // namespace keldo::ctl
