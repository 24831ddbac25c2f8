#include "convert/cli/convert_main.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>

#include "convert/cli/argument_parser.h"
#include "convert/cli/files.h"
#include "convert/pixels/image.h"
#include "convert/pixels/plan.h"
#include "convert/readers/readers.h"
#include "convert/sandbox/message.h"
#include "convert/sandbox/worker.h"

namespace keldo::convert {
namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

// The name and version, and the formats, one line each.
std::string VersionText() {
  return "convert-thumb " KELDO_VERSION "\nFormats:" + InstalledFormats() + "\n";
}

ImageError NotOurs(const std::string& reason) {
  return {ImageError::Kind::kUnsupported, reason};
}

// True when the file says that it is an ICC profile. ImageMagick takes profiles out of other files
// too.
bool IsIccProfile(Bytes file) {
  constexpr std::size_t kHeaderSize = 128;
  constexpr std::size_t kSignaturePlace = 36;
  constexpr std::string_view kSignature = "acsp";
  return file.size() >= kHeaderSize &&
         TextAt(file, kSignaturePlace, kSignature.size()) == kSignature;
}

// Opens the profile to attach. ImageMagick runs instead where we cannot attach it.
std::unique_ptr<InputFile> OpenIccProfile(const std::string& path) {
  if (path.empty()) return nullptr;
  std::unique_ptr<InputFile> file;
  try {
    file = std::make_unique<InputFile>(path);
    file->Map();
  } catch (const ImageError& error) {
    throw NotOurs(error.what());
  }
  if (!IsIccProfile(file->bytes())) throw NotOurs("the profile is of another kind");
  return file;
}

void MakeAll(const Plan& plan, Format format, Bytes file, Bytes icc, std::span<const int> outputs) {
  const auto image = OpenImage(format, file, {Limits{}, plan.steps.front().box, plan.one_thread});
  // Unless it is laid over a background, ImageMagick leaves the alpha channel out.
  if (!plan.steps.front().flatten && image->info().has_alpha_or_palette) {
    throw NotOurs("its transparency is not to be flattened");
  }
  // ImageMagick would convert the colours from the one profile to the other.
  if (!icc.empty() && !image->info().icc.empty()) throw NotOurs("it has an ICC profile already");
  MakeThumbnails(plan.steps, *image, icc, outputs);
}

// Throws ImageError.
Outcome Convert(const Plan& plan, OutputFiles& outputs) {
  InputFile input(plan.input);
  const bool outputs_are_plain = outputs.Open(plan.steps, input.identity());
  if (!outputs_are_plain) throw NotOurs("the outputs are not separate files");
  input.Map();
  const Format format = media::DetectFormat(input.bytes());
  if (!LoadCodec(format)) throw NotOurs("it has another format");
  const std::unique_ptr<InputFile> icc_file = OpenIccProfile(plan.icc_profile);
  const Bytes icc = icc_file ? icc_file->bytes() : Bytes();

  WorkerPlan worker{plan.input, outputs.descriptors(), {}, {}};
  worker.limits.address_space += input.bytes().size();
  return RunWorker(worker,
                   [&] { MakeAll(plan, format, input.bytes(), icc, outputs.descriptors()); });
}

// kUnsupported without a message, kFailed with one.
Outcome ConvertAndClose(const Plan& plan, OutputFiles& outputs) {
  try {
    const Outcome outcome = Convert(plan, outputs);
    if (outcome == Outcome::kDone) outputs.Close();
    return outcome;
  } catch (const ImageError& error) {
    if (error.kind() == ImageError::Kind::kUnsupported) return Outcome::kUnsupported;
    PrintError(plan.input, error.what());
  } catch (const std::exception& error) {
    PrintError(plan.input, error.what());
  }
  return Outcome::kFailed;
}

}  // namespace

int ConvertMain(const std::vector<std::string>& arguments, const ImageMagick& magick) {
  if (arguments.size() == 1 && arguments.front() == "--version") {
    return std::fputs(VersionText().c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? kFailure
                                                                                     : kSuccess;
  }
  const std::optional<Command> command = ParseCommand(arguments);
  if (!command) return RunImageMagick(magick, arguments, "this command line");

  OutputFiles outputs;
  switch (ConvertAndClose(command->plan, outputs)) {
    case Outcome::kDone:
      return kSuccess;
    case Outcome::kFailed:
      return kFailure;
    case Outcome::kUnsupported:
      break;
  }
  const int status = RunImageMagick(magick, arguments, *command, command->plan.input);
  if (status == kSuccess) outputs.Keep();
  return status;
}

}  // namespace keldo::convert
