#include <memory>

#include "ctl/commands/command.h"
#include "ctl/gallery/gallery.h"

namespace keldo::ctl {
namespace {

constexpr const char* kHelp =
    "Write an HTML page of the thumbnails of photo libraries, and of what is wrong with them";

constexpr const char* kExamples =
    "Open the page in a browser. It needs nothing else: no server, no network.\n"
    "\n"
    "The page links to the thumbnails where they are; it is not a copy. The links are relative, "
    "so\n"
    "leave the page where it was written, or write it again elsewhere. On a web server, put it at "
    "or\n"
    "above the photos: what is not below the server's root cannot be seen.\n"
    "It shows the photos as they were when it was written.\n"
    "\n"
    "Exit status: 0; 1 when the page could not be written or a directory could not be read; 2 for\n"
    "wrong usage.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl gallery ~/Pictures                          writes ./thumbnails.html\n"
    "  keldothumbctl gallery -o ~/Pictures/index.html ~/Pictures\n"
    "  keldothumbctl gallery --title \"Family\" /volume1/photo /volume2/scans\n"
    "  keldothumbctl gallery -o - /volume1/photo | gzip > page.html.gz\n";

}  // namespace

void AddGalleryCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<GalleryRequest>();
  const auto profile = std::make_shared<std::string>();
  CLI::App* gallery = AddCommand(app, context, "gallery", kHelp);
  AddText(*gallery, "-o,--output", request->output,
          "The page; default: ./thumbnails.html. '-' is standard output,\n"
          "for a page that will be kept in the current directory",
          {.type_name = "FILE.html"});
  AddText(*gallery, "--title", request->title, "The page's title", {.type_name = "TEXT"});
  AddProfileOption(*gallery, *profile);
  AddDirectoriesArgument(*gallery, request->directories);
  SetFooter(*gallery, kExamples);
  OnRun(*gallery, context, [&context, request, profile] {
    if (request->output.empty()) throw UsageError("--output: a file name is needed");
    request->profile = ProfileToUse(*profile, context.environment);
    request->directories = CheckedDirectories(request->directories);
    return WriteGallery(*request, context.console);
  });
}

}  // namespace keldo::ctl
