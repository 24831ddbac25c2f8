// Prints the Huffman tables that suit the given JPEG files best, as source text for
// huffman_tables.cpp: train_huffman_tables THUMBNAIL.jpg...
//
// Every symbol that a baseline file may need gets a code, whether it occurs in these files or not.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>
// Needs the types of cstdio.
#include <jpeglib.h>

namespace {

constexpr int kLongestCode = 16;
constexpr int kRunsOf16 = 0xF0;
constexpr int kLargestDcSize = 11;
constexpr int kLargestAcSize = 10;

using Counts = std::array<std::int64_t, 256>;

struct TableCounts {
  Counts dc{};
  Counts ac{};
};

int BitsOf(int value) {
  int bits = 0;
  for (value = std::abs(value); value != 0; value /= 2)
    ++bits;
  return bits;
}

void CountBlock(const JCOEF* block, int& last_dc, TableCounts& counts) {
  // Zigzag order: one diagonal after the other, alternately down and up.
  static const std::array<int, DCTSIZE2> kOrder = [] {
    std::array<int, DCTSIZE2> order{};
    std::size_t at = 0;
    for (int sum = 0; sum <= 2 * (DCTSIZE - 1); ++sum) {
      for (int i = 0; i <= sum; ++i) {
        const int row = sum % 2 == 0 ? sum - i : i;
        const int column = sum - row;
        if (row < DCTSIZE && column < DCTSIZE) order.at(at++) = row * DCTSIZE + column;
      }
    }
    return order;
  }();
  ++counts.dc.at(static_cast<std::size_t>(BitsOf(block[0] - last_dc)));
  last_dc = block[0];
  int zeros = 0;
  for (std::size_t i = 1; i < kOrder.size(); ++i) {
    const int value = block[kOrder.at(i)];
    if (value == 0) {
      ++zeros;
      continue;
    }
    for (; zeros > 15; zeros -= 16)
      ++counts.ac.at(kRunsOf16);
    const int symbol = zeros * 16 + BitsOf(value);
    ++counts.ac.at(static_cast<std::size_t>(symbol));
    zeros = 0;
  }
  if (zeros > 0) ++counts.ac.at(0);
}

void CountComponent(jpeg_decompress_struct& codec, jvirt_barray_ptr blocks, int index,
                    TableCounts& counts) {
  const jpeg_component_info& component = codec.comp_info[index];
  int last_dc = 0;
  for (JDIMENSION row = 0; row < component.height_in_blocks; ++row) {
    const JBLOCKARRAY line = codec.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&codec),
                                                           blocks, row, 1, FALSE);
    for (JDIMENSION column = 0; column < component.width_in_blocks; ++column)
      CountBlock(line[0][column], last_dc, counts);
  }
}

void CountFile(const char* path, std::array<TableCounts, 2>& counts) {
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) {
    std::perror(path);
    std::exit(1);
  }
  jpeg_decompress_struct codec{};
  jpeg_error_mgr errors{};
  codec.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&codec);
  jpeg_stdio_src(&codec, file);
  static_cast<void>(jpeg_read_header(&codec, TRUE));
  jvirt_barray_ptr* blocks = jpeg_read_coefficients(&codec);
  for (int i = 0; i < codec.num_components; ++i)
    CountComponent(codec, blocks[i], i, counts.at(i == 0 ? 0 : 1));
  jpeg_destroy_decompress(&codec);
  static_cast<void>(std::fclose(file));
}

// Lengths of codes for the counts: the two rarest groups become one, until one is left.
std::vector<int> CodeLengths(std::vector<std::int64_t> counts) {
  // One symbol more than there are, so that no code consists of ones only.
  counts.push_back(1);
  std::vector<int> lengths(counts.size());
  std::vector<std::vector<std::size_t>> groups;
  for (std::size_t i = 0; i < counts.size(); ++i)
    groups.push_back({i});
  while (groups.size() > 1) {
    for (int which = 0; which < 2; ++which) {
      const std::size_t last = groups.size() - 1 - static_cast<std::size_t>(which);
      std::size_t rarest = 0;
      for (std::size_t i = 1; i <= last; ++i) {
        if (counts[i] <= counts[rarest]) rarest = i;
      }
      std::swap(counts[rarest], counts[last]);
      std::swap(groups[rarest], groups[last]);
    }
    std::vector<std::size_t> merged = groups.back();
    const std::int64_t count = counts.back();
    groups.pop_back();
    counts.pop_back();
    merged.insert(merged.end(), groups.back().begin(), groups.back().end());
    for (const std::size_t symbol : merged)
      ++lengths[symbol];
    groups.back() = merged;
    counts.back() += count;
  }
  return lengths;
}

// Codes longer than 16 bits are shortened by making a shorter one longer, as JPEG's annex K.2 does.
std::array<int, kLongestCode + 1> NumbersOfCodes(const std::vector<int>& lengths) {
  std::vector<int> numbers(std::max<std::size_t>(lengths.size(), kLongestCode) + 1);
  for (const int length : lengths)
    ++numbers[static_cast<std::size_t>(length)];
  for (std::size_t i = numbers.size() - 1; i > kLongestCode; --i) {
    while (numbers[i] > 0) {
      std::size_t shorter = i - 2;
      while (numbers[shorter] == 0)
        --shorter;
      numbers[i] -= 2;
      ++numbers[i - 1];
      numbers[shorter + 1] += 2;
      --numbers[shorter];
    }
  }
  std::array<int, kLongestCode + 1> result{};
  std::copy_n(numbers.begin(), result.size(), result.begin());
  std::size_t longest = kLongestCode;
  while (result.at(longest) == 0)
    --longest;
  --result.at(longest);
  return result;
}

void Print(const char* name, const Counts& counts, const std::vector<int>& symbols) {
  std::vector<int> sorted = symbols;
  const auto count_of = [&](int symbol) { return counts.at(static_cast<std::size_t>(symbol)) + 1; };
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](int a, int b) { return count_of(a) > count_of(b); });
  std::vector<std::int64_t> sorted_counts;
  sorted_counts.reserve(sorted.size());
  for (const int symbol : sorted)
    sorted_counts.push_back(count_of(symbol));
  const auto numbers = NumbersOfCodes(CodeLengths(sorted_counts));
  std::printf("constexpr HuffmanTable<%zu> %s{\n    {", sorted.size(), name);
  for (std::size_t i = 1; i < numbers.size(); ++i)
    std::printf("%d%s", numbers.at(i), i + 1 < numbers.size() ? ", " : "},\n    {");
  for (std::size_t i = 0; i < sorted.size(); ++i)
    std::printf("0x%02X%s", static_cast<unsigned>(sorted[i]),
                i + 1 < sorted.size() ? ", " : "}};\n");
}

}  // namespace

int main(int argc, char** argv) {
  std::array<TableCounts, 2> counts{};
  for (int i = 1; i < argc; ++i)
    CountFile(argv[i], counts);
  std::vector<int> dc;
  for (int size = 0; size <= kLargestDcSize; ++size)
    dc.push_back(size);
  std::vector<int> ac{0, kRunsOf16};
  for (int run = 0; run < 16; ++run) {
    for (int size = 1; size <= kLargestAcSize; ++size)
      ac.push_back(run * 16 + size);
  }
  Print("kLumaDc", counts[0].dc, dc);
  Print("kLumaAc", counts[0].ac, ac);
  Print("kChromaDc", counts[1].dc, dc);
  Print("kChromaAc", counts[1].ac, ac);
}
