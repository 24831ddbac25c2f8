#include "convert/pixels/row_kernels.h"

#include <array>

#include "convert/pixels/filter_weights.h"

// This file is compiled once for each instruction set that pays. SSE4 does nothing here that SSSE3
// cannot, AVX-512 was no faster over a whole run (docs/performance.md), and vectors whose length is
// not known before the program runs do not fit the blocks.
#undef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS \
  (HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
// On ARM, NEON is what the compiler may use anywhere. As a choice at run time, which this keeps
// Highway from offering, it would also want the instructions for AES.
#if defined(__arm__) || defined(__aarch64__)
#undef TOOLCHAIN_MISS_SYS_AUXV_H
#define TOOLCHAIN_MISS_SYS_AUXV_H
#endif
// The portable target runs on any processor. Highway avoids it with compilers before GCC 12.3, one
// of whose optimisations may go wrong in it; here, the tests hold every target against exact
// results.
#undef HWY_BROKEN_EMU128
#define HWY_BROKEN_EMU128 0
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/pixels/row_kernels.cpp"
// Must come first: it includes this file again for each instruction set.
#include <hwy/foreach_target.h>
// Must come after it.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace keldo::convert {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Samples = hn::CappedTag<std::int16_t, 16>;
using SampleVector = hn::Vec<Samples>;
using HalfSamples = hn::Half<Samples>;
using SampleBytes = hn::Rebind<std::uint8_t, Samples>;
using HalfBytes = hn::Rebind<std::uint8_t, HalfSamples>;
using Floats = hn::Repartition<float, Samples>;
using Integers = hn::Repartition<std::int32_t, Samples>;
using FloatSamples = hn::Rebind<std::int16_t, Floats>;

constexpr Samples kSamples;
constexpr std::size_t kLanes = hn::MaxLanes(kSamples);
constexpr std::size_t kTileSide = 8;
// Vectors that are summed at a time, so that a weight is fetched once for all of them.
constexpr std::size_t kVectorsAtOnce = 8;

HWY_INLINE SampleVector Clamped(SampleVector v) {
  return hn::Min(hn::Max(v, hn::Zero(kSamples)), hn::Set(kSamples, kLargestSample));
}

HWY_INLINE SampleVector Weighted(SampleVector sum, SampleVector sample, SampleVector weight) {
  return hn::SaturatedAdd(sum, hn::MulFixedPoint15(sample, weight));
}

void Widen(const std::uint8_t* from, std::int16_t* to, std::size_t count) {
  constexpr SampleBytes bytes;
  for (std::size_t i = 0; i < count; i += kLanes) {
    const auto wide = hn::PromoteTo(kSamples, hn::LoadU(bytes, from + i));
    hn::StoreU(hn::ShiftLeft<kFractionBits>(wide), kSamples, to + i);
  }
}

HWY_INLINE hn::Vec<SampleBytes> Narrowed(SampleVector samples) {
  constexpr SampleBytes bytes;
  const auto rounded = hn::SaturatedAdd(samples, hn::Set(kSamples, 1 << (kFractionBits - 1)));
  return hn::DemoteTo(bytes, hn::ShiftRight<kFractionBits>(rounded));
}

void Narrow(const std::int16_t* from, std::uint8_t* to, std::size_t count) {
  constexpr SampleBytes bytes;
  for (std::size_t i = 0; i < count; i += kLanes)
    hn::StoreU(Narrowed(hn::LoadU(kSamples, from + i)), bytes, to + i);
}

template <std::size_t kVectors>
HWY_INLINE void AddRowsAt(std::span<const std::int16_t* const> rows,
                          std::span<const std::int16_t> weights, std::int16_t* to, std::size_t at) {
  std::array<SampleVector, kVectors> sums;
  for (SampleVector& sum : sums)
    sum = hn::Zero(kSamples);
  for (std::size_t tap = 0; tap < rows.size(); ++tap) {
    const SampleVector weight = hn::Set(kSamples, weights[tap]);
    for (std::size_t i = 0; i < kVectors; ++i)
      sums[i] = Weighted(sums[i], hn::LoadU(kSamples, rows[tap] + at + i * kLanes), weight);
  }
  for (std::size_t i = 0; i < kVectors; ++i)
    hn::StoreU(Clamped(sums[i]), kSamples, to + at + i * kLanes);
}

void AddRows(std::span<const std::int16_t* const> rows, std::span<const std::int16_t> weights,
             std::int16_t* to, std::size_t count) {
  constexpr std::size_t kStep = kVectorsAtOnce * kLanes;
  std::size_t at = 0;
  for (; at + kStep <= count; at += kStep)
    AddRowsAt<kVectorsAtOnce>(rows, weights, to, at);
  for (; at < count; at += kLanes)
    AddRowsAt<1>(rows, weights, to, at);
}

// Transposes 8 rows of 8 samples, in each 128-bit part of the vectors for itself.
HWY_INLINE void TransposeTile(std::array<SampleVector, kTileSide>& tile) {
  constexpr hn::Repartition<std::int32_t, Samples> pairs;
  constexpr hn::Repartition<std::int64_t, Samples> quads;
  std::array<SampleVector, kTileSide> two;
  for (std::size_t i = 0; i < kTileSide; i += 2) {
    two[i] = hn::InterleaveLower(kSamples, tile[i], tile[i + 1]);
    two[i + 1] = hn::InterleaveUpper(kSamples, tile[i], tile[i + 1]);
  }
  std::array<hn::Vec<decltype(quads)>, kTileSide> four;
  for (std::size_t i = 0; i < kTileSide; i += 4) {
    for (std::size_t side = 0; side < 2; ++side) {
      const auto upper = hn::BitCast(pairs, two[i + side]);
      const auto lower = hn::BitCast(pairs, two[i + side + 2]);
      four[i + 2 * side] = hn::BitCast(quads, hn::InterleaveLower(pairs, upper, lower));
      four[i + 2 * side + 1] = hn::BitCast(quads, hn::InterleaveUpper(pairs, upper, lower));
    }
  }
  for (std::size_t i = 0; i < kTileSide / 2; ++i) {
    tile[2 * i] = hn::BitCast(kSamples, hn::InterleaveLower(quads, four[i], four[i + 4]));
    tile[2 * i + 1] = hn::BitCast(kSamples, hn::InterleaveUpper(quads, four[i], four[i + 4]));
  }
}

// A row of 8 samples, with the row 8 further down in the upper half of a vector of 16.
HWY_INLINE SampleVector LoadTileRow(const std::int16_t* from, std::size_t stride) {
  if constexpr (kLanes == kTileSide) {
    return hn::LoadU(kSamples, from);
  } else {
    constexpr HalfSamples half;
    return hn::Combine(kSamples, hn::LoadU(half, from + kTileSide * stride), hn::LoadU(half, from));
  }
}

HWY_INLINE void StoreTileRow(SampleVector row, std::int16_t* to, std::size_t stride) {
  if constexpr (kLanes == kTileSide) {
    hn::StoreU(row, kSamples, to);
  } else {
    constexpr HalfSamples half;
    hn::StoreU(hn::LowerHalf(half, row), half, to);
    hn::StoreU(hn::UpperHalf(half, row), half, to + kTileSide * stride);
  }
}

HWY_INLINE void StoreTileRow(SampleVector row, std::uint8_t* to, std::size_t stride) {
  const auto bytes = Narrowed(row);
  if constexpr (kLanes == kTileSide) {
    constexpr SampleBytes whole;
    hn::StoreU(bytes, whole, to);
  } else {
    constexpr HalfBytes half;
    hn::StoreU(hn::LowerHalf(half, bytes), half, to);
    hn::StoreU(hn::UpperHalf(half, bytes), half, to + kTileSide * stride);
  }
}

void Transpose(const std::int16_t* from, std::size_t stride, std::int16_t* to, std::size_t count) {
  std::array<SampleVector, kTileSide> tile;
  for (std::size_t i = 0; i < count; i += kTileSide) {
    for (std::size_t row = 0; row < kTileSide; ++row)
      tile[row] = LoadTileRow(from + row * stride + i, stride);
    TransposeTile(tile);
    for (std::size_t sample = 0; sample < kTileSide; ++sample)
      hn::StoreU(tile[sample], kSamples, to + (i + sample) * kLanes);
  }
}

template <typename Sample>
void TransposeBack(const std::int16_t* from, Sample* to, std::size_t stride, std::size_t count) {
  std::array<SampleVector, kTileSide> tile;
  for (std::size_t i = 0; i < count; i += kTileSide) {
    for (std::size_t sample = 0; sample < kTileSide; ++sample)
      tile[sample] = hn::LoadU(kSamples, from + (i + sample) * kLanes);
    TransposeTile(tile);
    for (std::size_t row = 0; row < kTileSide; ++row)
      StoreTileRow(tile[row], to + row * stride + i, stride);
  }
}

template <std::size_t kChannels>
void FilterTransposedPixels(const TransposedBlock& from, std::int16_t* to,
                            const FilterWeights& weights, const PixelRange& pixels) {
  constexpr std::size_t kPixel = kChannels * kLanes;
  const std::size_t start = from.start * kLanes;
  for (int x = pixels.first; x < pixels.end; ++x, to += kPixel) {
    const FilterWeights::Taps taps = weights.taps(x);
    std::array<SampleVector, kChannels> sums;
    for (SampleVector& sum : sums)
      sum = hn::Zero(kSamples);
    for (std::size_t tap = 0; tap < taps.sources.size(); ++tap) {
      const SampleVector weight = hn::Set(kSamples, taps.weights[tap]);
      const std::int16_t* pixel =
          from.samples + (static_cast<std::size_t>(taps.sources[tap]) * kPixel - start);
      for (std::size_t c = 0; c < kChannels; ++c)
        sums[c] = Weighted(sums[c], hn::LoadU(kSamples, pixel + c * kLanes), weight);
    }
    for (std::size_t c = 0; c < kChannels; ++c)
      hn::StoreU(Clamped(sums[c]), kSamples, to + c * kLanes);
  }
}

void FilterTransposed(const TransposedBlock& from, std::int16_t* to, const FilterWeights& weights,
                      const PixelRange& pixels) {
  if (pixels.channels == 1) {
    FilterTransposedPixels<1>(from, to, weights, pixels);
  } else {
    FilterTransposedPixels<3>(from, to, weights, pixels);
  }
}

void Sharpen(const std::int16_t* p, const std::int16_t* blurred, float gain, float threshold,
             std::int16_t* to, std::size_t count) {
  constexpr Floats floats;
  constexpr Integers integers;
  constexpr FloatSamples samples;
  const auto load = [&](const std::int16_t* from) {
    return hn::ConvertTo(floats, hn::PromoteTo(integers, hn::LoadU(samples, from)));
  };
  const auto gains = hn::Set(floats, gain);
  const auto least = hn::Set(floats, threshold / 2);
  const auto largest = hn::Set(samples, kLargestSample);
  for (std::size_t i = 0; i < count; i += hn::MaxLanes(floats)) {
    const auto plain = load(p + i);
    const auto difference = hn::Sub(plain, load(blurred + i));
    const auto added =
        hn::IfThenElseZero(hn::Ge(hn::Abs(difference), least), hn::Mul(difference, gains));
    const auto rounded = hn::DemoteTo(samples, hn::NearestInt(hn::Add(plain, added)));
    hn::StoreU(hn::Min(hn::Max(rounded, hn::Zero(samples)), largest), samples, to + i);
  }
}

}  // namespace

extern const RowKernels kKernels;
const RowKernels kKernels{hwy::TargetName(HWY_TARGET),
                          kLanes,
                          Widen,
                          Narrow,
                          AddRows,
                          Transpose,
                          TransposeBack<std::int16_t>,
                          TransposeBack<std::uint8_t>,
                          FilterTransposed,
                          Sharpen};

}  // namespace HWY_NAMESPACE
}  // namespace keldo::convert
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace keldo::convert {
namespace {

// Highway's own choice at run time is in a library that takes five milliseconds to load.
#if HWY_ARCH_X86
bool HasSsse3() {
  return __builtin_cpu_supports("ssse3") != 0;
}

bool HasAvx2() {
  return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0 &&
         __builtin_cpu_supports("bmi") != 0 && __builtin_cpu_supports("bmi2") != 0;
}
#endif

struct KernelList {
  std::array<const RowKernels*, 3> kernels{};
  std::size_t count = 0;
  void Add(const RowKernels& more) { kernels.at(count++) = &more; }
};

KernelList FindKernels() {
  KernelList list;
#if HWY_ARCH_X86
  list.Add(N_EMU128::kKernels);
  if (HasSsse3()) list.Add(N_SSSE3::kKernels);
  if (HasAvx2()) list.Add(N_AVX2::kKernels);
#else
  // The last target that this file is compiled for runs on every processor of this kind.
  list.Add(HWY_NAMESPACE::kKernels);
#endif
  return list;
}

}  // namespace

std::span<const RowKernels* const> AllKernels() {
  static const KernelList list = FindKernels();
  return std::span(list.kernels).first(list.count);
}

const RowKernels& BestKernels() {
  return *AllKernels().back();
}

}  // namespace keldo::convert
#endif
