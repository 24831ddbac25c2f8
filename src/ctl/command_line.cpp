#include "ctl/command_line.h"

#include <CLI/CLI.hpp>
#include <ostream>

#include "ctl/index_mask.h"
#include "ctl/mask_text.h"

namespace keldo::ctl {
namespace {

constexpr int kUsage = 2;

constexpr const char* kMaskHelp =
    "Show or set which thumbnails are wanted for a directory and all below it";

constexpr const char* kMaskExamples =
    "Kinds, with the side of their box in pixels:\n"
    "  S 120, SM 240, M 320, B 640, L 800, XL 1280\n"
    "As a number: S 1, M 2, B 4, L 8, XL 16, SM 32, added up.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl index mask /volume1/photo            what holds, and where it was set\n"
    "  keldothumbctl index mask /volume1/photo S,M,XL     only these three from now on\n"
    "  keldothumbctl index mask /volume1/scans 0          none at all\n"
    "  keldothumbctl index mask /volume1/photo default    as the directory above has it\n"
    "  keldothumbctl index mask --video /volume1/film S   for videos\n"
    "  keldothumbctl index mask -- -odd-name              a name that begins with a dash\n";

constexpr const char* kInherit = "default";

// What is wrong with a MASK argument; empty when nothing is.
std::string ProblemWithMask(const std::string& text) {
  if (text == kInherit || ParseMask(text)) return {};
  return "'" + text + "' is no number from 0 to 63 and no list of kinds";
}

// Takes a MASK argument without a problem, or an empty text when none was given.
void TakeMask(const std::string& text, IndexMaskRequest& request) {
  if (text == kInherit) {
    request.action = IndexMaskRequest::Action::kRemove;
  } else if (const auto mask = ParseMask(text)) {
    request.action = IndexMaskRequest::Action::kSet;
    request.mask = *mask;
  }
}

void AddIndexMask(CLI::App& index, IndexMaskRequest& request, std::string& mask_text) {
  CLI::App* mask = index.add_subcommand("mask", kMaskHelp);
  mask->add_option("DIR", request.directory, "The directory")->type_name("")->required();
  mask->add_option("MASK", mask_text,
                   "The kinds wanted: S,M,XL or a number from 0 to 63; 'default' to inherit")
      ->type_name("")
      ->check(ProblemWithMask);
  mask->add_flag("--video", request.video, "For the thumbnails of videos, not of photos");
  mask->add_flag("--json", request.json, "Print one JSON object");
  mask->footer(kMaskExamples);
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const std::string& database_path,
                   std::ostream& out, std::ostream& err) {
  CLI::App app("Looks after the thumbnails that keldothumb makes.", "keldothumbctl");
  app.require_subcommand(1);
  CLI::App* index = app.add_subcommand("index", "The index of the media on this machine");
  index->require_subcommand(1);
  IndexMaskRequest request;
  std::string mask_text;
  AddIndexMask(*index, request, mask_text);

  try {
    // The library takes arguments from the end.
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? 0 : kUsage;
  }
  TakeMask(mask_text, request);
  return RunIndexMask(request, database_path, out, err);
}

}  // namespace keldo::ctl
