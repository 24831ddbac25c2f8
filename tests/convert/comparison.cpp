#include "convert/comparison.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>

#include "fakes/fake_platform.h"
#include "render/convert_command.h"
#include "support/image_likeness.h"
#include "support/jpeg_facts.h"

namespace keldo::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReference = "/usr/bin/convert";
// Our converter must refuse files only for its own limits. ImageMagick's limits, which an
// administrator may change, must not hide a difference.
constexpr const char* kNoLimits = R"(<policymap>
  <policy domain="resource" name="memory" value="4GiB"/>
  <policy domain="resource" name="map" value="4GiB"/>
  <policy domain="resource" name="width" value="100KP"/>
  <policy domain="resource" name="height" value="100KP"/>
  <policy domain="resource" name="area" value="1GP"/>
  <policy domain="resource" name="disk" value="4GiB"/>
</policymap>
)";
constexpr int kSmallSide = 32;

std::vector<std::string> Joined(const std::string& program,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {program};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

ComparisonTest::ComparisonTest() {
  WriteFile(In("policy/policy.xml"), kNoLimits);
}

ThumbRequest ComparisonTest::Wanted(int side, bool fill, const std::string& unsharp) {
  ThumbRequest request;
  request.tempDir = Dir();
  request.tempPath = In("out" + std::to_string(++outputs_) + ".jpg");
  request.fill = fill;
  request.width = side;
  request.height = side;
  request.unsharp = unsharp;
  return request;
}

ThumbRequestList ComparisonTest::ThreeThumbnails() {
  constexpr const char* kUnsharp = "0.5x0.5+1.25+0";
  ThumbRequestList list = {Wanted(320, true), Wanted(160, false, kUnsharp),
                           Wanted(80, true, kUnsharp)};
  for (ThumbRequest& request : list)
    request.autoOrient = true;
  return list;
}

std::string ComparisonTest::Source(std::string_view kind, const Image& image) const {
  return WriteSource(SourceKindOf(kind), image, In(std::string(kind)), WithoutLimits());
}

std::vector<std::string> ComparisonTest::Arguments(const ThumbRequestList& list,
                                                   const std::string& input,
                                                   const std::string& icc) {
  if (!RunConvert(list, input, icc)) throw std::runtime_error("the fake run failed");
  const std::vector<std::string>& run = fake().runs.back();
  // After the program and its name.
  return {run.begin() + 2, run.end()};
}

Ended ComparisonTest::RunOurs(const std::vector<std::string>& arguments,
                              const std::string& directory) {
  return RunProgram(Joined(KELDO_CONVERTER, arguments), {}, directory);
}

Ended ComparisonTest::RunReference(const std::vector<std::string>& arguments) const {
  return RunProgram(Joined(kReference, arguments), WithoutLimits());
}

void ComparisonTest::Compare(const ThumbRequestList& list, const std::string& input,
                             const Likeness& likeness, const std::string& icc) {
  std::vector<std::string> outputs;
  for (const ThumbRequest& request : list)
    outputs.push_back(request.tempPath);
  CompareRuns(Arguments(list, input, icc), outputs, likeness);
  for (const std::string& output : outputs)
    EXPECT_TRUE(Exists(output)) << output;
}

void ComparisonTest::CompareRuns(const std::vector<std::string>& arguments,
                                 const std::vector<std::string>& outputs,
                                 const Likeness& likeness) {
  const auto reference_of = [](const std::string& output) { return output + ".reference"; };
  const Ended reference = RunReference(arguments);
  for (const std::string& output : outputs) {
    if (Exists(output)) fs::rename(output, reference_of(output));
  }
  const Ended ours = RunOurs(arguments);
  EXPECT_EQ(ours.status, reference.status)
      << "ours: " << ours.error << "reference: " << reference.error;
  for (const std::string& output : outputs) {
    EXPECT_EQ(Exists(output), Exists(reference_of(output))) << output;
    if (!Exists(output) || !Exists(reference_of(output))) continue;
    CompareFiles(output, reference_of(output), likeness);
  }
}

void ComparisonTest::CompareFiles(const std::string& ours, const std::string& reference,
                                  const Likeness& likeness) {
  SCOPED_TRACE(ours);
  const std::string our_content = ReadContent(ours);
  const std::string reference_content = ReadContent(reference);
  const auto our_facts = ReadJpegFacts(our_content);
  const auto reference_facts = ReadJpegFacts(reference_content);
  ASSERT_TRUE(our_facts && reference_facts);
  EXPECT_EQ(*our_facts, *reference_facts)
      << "ours: " << Describe(*our_facts) << "\nreference: " << Describe(*reference_facts);
  const auto our_image = DecodeJpeg(our_content);
  const auto reference_image = DecodeJpeg(reference_content);
  ASSERT_TRUE(our_image && reference_image);
  if (our_image->width != reference_image->width || our_image->height != reference_image->height) {
    return;  // The comparison of the facts reports it.
  }
  const double psnr = Psnr(*our_image, *reference_image);
  const double ssim = Ssim(*our_image, *reference_image);
  const double ratio =
      static_cast<double>(our_content.size()) / static_cast<double>(reference_content.size());
  std::cout << our_image->width << 'x' << our_image->height << "  " << psnr << " dB  SSIM " << ssim
            << "  size " << ratio << '\n';
  if (std::min(our_image->width, our_image->height) < kSmallSide) {
    EXPECT_GE(psnr, likeness.psnr_of_small);
  } else {
    EXPECT_GE(psnr, likeness.psnr);
    EXPECT_GE(ssim, likeness.ssim);
  }
  size_ratios_.push_back(ratio);
}

}  // namespace keldo::testing
