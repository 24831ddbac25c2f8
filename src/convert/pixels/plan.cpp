#include "convert/pixels/plan.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/pixels/jpeg_writer.h"
#include "convert/pixels/resizer.h"
#include "convert/pixels/rotation.h"
#include "convert/pixels/row_kernels.h"
#include "convert/pixels/sharpener.h"

namespace keldo::convert {
namespace {

int ScaledSide(int side, double scale) {
  const double scaled = std::floor(scale * side + 0.5);
  return std::clamp(static_cast<int>(std::min<double>(scaled, side)), 1, side);
}

// A large reduction samples the image first, unless the thumbnail is too small to afford it.
constexpr double kLargeReduction = 0.1;
constexpr int kSamplesPicked = 5;
constexpr int kFewestPicked = 128;

bool IsPresampled(const Size& source, const Size& target) {
  const double across = static_cast<double>(target.width) / source.width;
  const double down = static_cast<double>(target.height) / source.height;
  return across * down <= kLargeReduction && kSamplesPicked * target.width >= kFewestPicked &&
         kSamplesPicked * target.height >= kFewestPicked;
}

// Resizes and sharpens an image where either is needed.
class Reducer : public RowSink {
 public:
  Reducer(const Reduction& reduction, const std::optional<Sharpening>& unsharp,
          std::unique_ptr<RowSink> next)
      : kernels_(BestKernels()), next_(std::move(next)) {
    const Size& target = reduction.target;
    samples_ =
        static_cast<std::size_t>(target.width) * static_cast<std::size_t>(reduction.channels);
    stride_ = (samples_ + kernels_.lanes - 1) / kernels_.lanes * kernels_.lanes;
    narrow_.resize(stride_);
    if (unsharp) {
      sharpener_ = std::make_unique<Sharpener>(*unsharp, target, reduction.channels, kernels_,
                                               [this](const std::int16_t* row) { Narrow(row); });
    }
    if (reduction.source == target) {
      wide_.resize(stride_);
    } else if (sharpener_) {
      resizer_ = std::make_unique<Resizer>(
          reduction, kernels_, [this](const std::int16_t* row) { sharpener_->AddRow(row); });
    } else {
      resizer_ = std::make_unique<Resizer>(reduction, kernels_,
                                           [this](const std::uint8_t* row) { next_->AddRow(row); });
    }
  }

  void AddRow(const std::uint8_t* row) override {
    if (resizer_) {
      resizer_->AddRow(row);
    } else if (sharpener_) {
      std::copy(row, row + samples_, narrow_.data());
      kernels_.widen(narrow_.data(), wide_.data(), stride_);
      sharpener_->AddRow(wide_.data());
    } else {
      next_->AddRow(row);
    }
  }

  void Finish() override { next_->Finish(); }

 private:
  void Narrow(const std::int16_t* row) {
    kernels_.narrow(row, narrow_.data(), stride_);
    next_->AddRow(narrow_.data());
  }

  const RowKernels& kernels_;
  std::unique_ptr<RowSink> next_;
  std::size_t samples_ = 0;
  std::size_t stride_ = 0;
  std::unique_ptr<Resizer> resizer_;
  std::unique_ptr<Sharpener> sharpener_;
  std::vector<std::int16_t> wide_;
  std::vector<std::uint8_t> narrow_;
};

// Passes each row to several sinks.
class Splitter : public RowSink {
 public:
  void Add(std::unique_ptr<RowSink> sink) { sinks_.push_back(std::move(sink)); }

  void AddRow(const std::uint8_t* row) override {
    for (const auto& sink : sinks_)
      sink->AddRow(row);
  }

  void Finish() override {
    for (const auto& sink : sinks_)
      sink->Finish();
  }

 private:
  std::vector<std::unique_ptr<RowSink>> sinks_;
};

// The image that a step works on.
struct Stage {
  Size size;
  int orientation = 1;
  Filter filter = Filter::kLanczos;
};

class Chain {
 public:
  Chain(const ImageInfo& info, Bytes attached_icc) : info_(info) {
    format_.layout = info.layout;
    format_.sampling = info.sampling;
    format_.density = info.density;
    // A gray image's own profile does not describe the sRGB gray that the image becomes.
    if (info.icc.empty()) {
      format_.icc = attached_icc;
    } else if (info.layout != PixelLayout::kGray) {
      format_.icc = info.icc;
    }
  }

  // The sink that receives the image and writes the files of all steps.
  [[nodiscard]] std::unique_ptr<RowSink> Build(const std::vector<Step>& steps,
                                               std::span<const int> outputs) const {
    const Stage image{{info_.full_width, info_.full_height},
                      info_.orientation,
                      info_.has_alpha_or_palette ? Filter::kMitchell : Filter::kLanczos};
    const Rotation rotation = RotationOf(steps.front(), image);
    // From here on the image counts as having an alpha channel, which changes the filter.
    const Stage first{rotation.SizeOf(ThumbnailSize(image.size, steps.front().box)),
                      steps.front().auto_orient ? 1 : image.orientation, Filter::kMitchell};
    auto results = std::make_unique<Splitter>();
    results->Add(Writer(steps.front(), image.size, first.size, outputs.front()));
    for (std::size_t i = 1; i < steps.size(); ++i) {
      const Rotation next_rotation = RotationOf(steps[i], first);
      const Size size = next_rotation.SizeOf(ThumbnailSize(first.size, steps[i].box));
      results->Add(
          Worker(steps[i], first, first.size, Writer(steps[i], first.size, size, outputs[i])));
    }
    return Worker(steps.front(), image, {info_.width, info_.height}, std::move(results));
  }

 private:
  static Rotation RotationOf(const Step& step, const Stage& stage) {
    Rotation rotation;
    if (step.auto_orient) rotation = Rotation::FromOrientation(stage.orientation);
    rotation = rotation.Rotated(step.rotate);
    return step.flop ? rotation.Flopped() : rotation;
  }

  // Makes one thumbnail from rows of size `source`, which may be smaller than the stage's image.
  // Sharpening treats all directions alike, so it can come before the rotation.
  [[nodiscard]] std::unique_ptr<RowSink> Worker(const Step& step, const Stage& stage,
                                                const Size& source,
                                                std::unique_ptr<RowSink> next) const {
    const Size target = ThumbnailSize(stage.size, step.box);
    const Rotation rotation = RotationOf(step, stage);
    const int channels = ChannelsOf(info_.layout);
    if (!rotation.IsIdentity()) next = MakeRotator(rotation, target, channels, std::move(next));
    const Reduction reduction{source, target, channels, stage.filter, IsPresampled(source, target)};
    return std::make_unique<Reducer>(reduction, step.unsharp, std::move(next));
  }

  // A JPEG file that is written again at its own size has few different coefficients. With tables
  // trained on thumbnails it would be a quarter larger.
  [[nodiscard]] std::unique_ptr<RowSink> Writer(const Step& step, const Size& source,
                                                const Size& size, int output) const {
    JpegFormat format = format_;
    format.size = size;
    format.quality = step.quality;
    format.own_tables =
        std::int64_t{size.width} * size.height == std::int64_t{source.width} * source.height;
    return MakeJpegWriter(format, output);
  }

  const ImageInfo& info_;
  JpegFormat format_;
};

}  // namespace

Size ThumbnailSize(const Size& image, const Box& box) {
  const double horizontal = static_cast<double>(box.width) / image.width;
  const double vertical = static_cast<double>(box.height) / image.height;
  const double scale = box.fill ? std::max(horizontal, vertical) : std::min(horizontal, vertical);
  return {ScaledSide(image.width, scale), ScaledSide(image.height, scale)};
}

void MakeThumbnails(const std::vector<Step>& steps, ImageReader& image, Bytes attached_icc,
                    std::span<const int> outputs) {
  const ImageInfo& info = image.info();
  const std::unique_ptr<RowSink> sink = Chain(info, attached_icc).Build(steps, outputs);
  for (int y = 0; y < info.height; ++y)
    sink->AddRow(image.NextRow());
  sink->Finish();
}

}  // namespace keldo::convert
