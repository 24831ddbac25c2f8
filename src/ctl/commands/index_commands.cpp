// keldothumbctl index: show and edit the embedded index.
#include <CLI/CLI.hpp>
#include <memory>

#include "ctl/commands/command.h"
#include "ctl/commands/index_mask.h"
#include "ctl/commands/mask_text.h"

namespace keldo::ctl {
namespace {

constexpr const char* kMaskHelp =
    "Show or set which thumbnails are wanted for a directory and everything below it";

constexpr const char* kMaskExamples =
    "Kinds, with the side of their box in pixels:\n"
    "  S 120, SM 240, M 320, B 640, L 800, XL 1280\n"
    "As a number, add up: S 1, M 2, B 4, L 8, XL 16, SM 32.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl index mask /volume1/photo            the current mask, and where it was set\n"
    "  keldothumbctl index mask /volume1/photo S,M,XL     only these three from now on\n"
    "  keldothumbctl index mask /volume1/scans 0          none at all\n"
    "  keldothumbctl index mask /volume1/photo default    inherit from the directory above\n"
    "  keldothumbctl index mask --video /volume1/film S   for videos\n"
    "  keldothumbctl index mask -- -odd-name              a name that begins with a dash\n";

constexpr const char* kInherit = "default";

// What is wrong with a MASK argument; empty if nothing.
std::string ProblemWithMask(const std::string& text) {
  if (text == kInherit || ParseMask(text)) return {};
  return "'" + text + "' is neither a number from 0 to 63 nor a list of kinds";
}

// Reads a valid MASK argument; an empty one only shows the mask.
void ReadMask(const std::string& text, IndexMaskRequest& request) {
  if (text == kInherit) {
    request.action = IndexMaskRequest::Action::kRemove;
  } else if (const auto mask = ParseMask(text)) {
    request.action = IndexMaskRequest::Action::kSet;
    request.mask = *mask;
  }
}

void AddMaskCommand(CLI::App& index, CommandContext& context) {
  const auto request = std::make_shared<IndexMaskRequest>();
  const auto mask_text = std::make_shared<std::string>();
  CLI::App* mask = AddCommand(index, context, "mask", kMaskHelp);
  mask->add_option("DIR", request->directory, "The directory")->type_name("")->required();
  mask->add_option("MASK", *mask_text,
                   "The kinds wanted: S,M,XL or a number from 0 to 63; 'default' to inherit")
      ->type_name("")
      ->check(ProblemWithMask);
  mask->add_flag("--video", request->video, "For videos instead of photos");
  AddJsonOption(*mask, request->json);
  mask->footer(kMaskExamples);
  OnRun(*mask, context, [&context, request, mask_text] {
    ReadMask(*mask_text, *request);
    return RunIndexMask(*request, context.environment.database_path, context.console.out(),
                        context.console.err());
  });
}

}  // namespace

void AddIndexCommand(CLI::App& app, CommandContext& context) {
  CLI::App* index = app.add_subcommand("index", "The index of the media on this machine");
  index->require_subcommand(1);
  AddMaskCommand(*index, context);
  AddIndexListCommand(*index, context);
  AddIndexShowCommand(*index, context);
}

}  // namespace keldo::ctl
