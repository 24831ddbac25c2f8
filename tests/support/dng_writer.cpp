#include "support/dng_writer.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace keldo::testing {
namespace {

enum class Type : std::uint16_t {
  kByte = 1,
  kText = 2,
  kShort = 3,
  kLong = 4,
  kRational = 5,
  kSignedRational = 10
};

void Put16(std::string& out, std::uint32_t value) {
  out += static_cast<char>(value & 0xFF);
  out += static_cast<char>(value >> 8 & 0xFF);
}

void Put32(std::string& out, std::uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}

std::string Shorts(std::initializer_list<std::uint32_t> values) {
  std::string out;
  for (const std::uint32_t value : values)
    Put16(out, value);
  return out;
}

std::string Longs(std::initializer_list<std::uint32_t> values) {
  std::string out;
  for (const std::uint32_t value : values)
    Put32(out, value);
  return out;
}

// Fractions with the denominator 10,000.
std::string Rationals(std::initializer_list<double> values) {
  std::string out;
  for (const double value : values) {
    Put32(out, static_cast<std::uint32_t>(std::lround(value * 10000)));
    Put32(out, 10000);
  }
  return out;
}

// A directory of tags in ascending order, twelve bytes each, followed by the longer values.
class Directory {
 public:
  void Add(std::uint16_t tag, Type type, const std::string& value) {
    tags_.push_back({tag, type, value});
  }

  [[nodiscard]] std::size_t Size() const {
    std::size_t size = 2 + tags_.size() * 12 + 4;
    for (const Tag& tag : tags_)
      size += tag.value.size() > 4 ? Padded(tag.value.size()) : 0;
    return size;
  }

  [[nodiscard]] std::string Encode(std::size_t offset) const {
    std::string head;
    std::string values;
    std::size_t value_offset = offset + 2 + tags_.size() * 12 + 4;
    Put16(head, static_cast<std::uint32_t>(tags_.size()));
    for (const Tag& tag : tags_) {
      Put16(head, tag.number);
      Put16(head, static_cast<std::uint32_t>(tag.type));
      Put32(head, static_cast<std::uint32_t>(tag.value.size() / SizeOf(tag.type)));
      if (tag.value.size() <= 4) {
        head += tag.value + std::string(4 - tag.value.size(), '\0');
        continue;
      }
      Put32(head, static_cast<std::uint32_t>(value_offset + values.size()));
      values += tag.value + std::string(Padded(tag.value.size()) - tag.value.size(), '\0');
    }
    Put32(head, 0);  // No further directory.
    return head + values;
  }

 private:
  struct Tag {
    std::uint16_t number;
    Type type;
    std::string value;
  };

  static std::size_t Padded(std::size_t size) { return (size + 1) / 2 * 2; }
  static std::size_t SizeOf(Type type) {
    switch (type) {
      case Type::kShort:
        return 2;
      case Type::kLong:
        return 4;
      case Type::kRational:
      case Type::kSignedRational:
        return 8;
      default:
        return 1;
    }
  }

  std::vector<Tag> tags_;
};

constexpr std::size_t kHeaderSize = 8;

std::uint32_t U32(std::size_t value) {
  return static_cast<std::uint32_t>(value);
}

// Sensor values are linear; those of an image are not.
std::uint32_t Linear(std::uint8_t value) {
  return static_cast<std::uint32_t>(std::lround(std::pow(value / 255.0, 2.2) * 16000));
}

std::string Mosaic(const Image& image) {
  std::string samples;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      Put16(samples, Linear(image.At(x, y)[static_cast<std::size_t>(y % 2 + x % 2)]));
    }
  }
  return samples;
}

// The tags that make the file a DNG: the camera's name, and its colours, which are the display's
// here.
void AddCamera(Directory& directory) {
  using std::string_literals::operator""s;
  directory.Add(50706, Type::kByte, "\x01\x04\0\0"s);
  directory.Add(50707, Type::kByte, "\x01\x01\0\0"s);
  directory.Add(50708, Type::kText, "Test Camera\0"s);
}

void AddColours(Directory& directory) {
  directory.Add(
      50721, Type::kSignedRational,
      Rationals({3.2406, -1.5372, -0.4986, -0.9689, 1.8758, 0.0415, 0.0557, -0.2040, 1.0570}));
  directory.Add(50728, Type::kRational, Rationals({1, 1, 1}));
  directory.Add(50778, Type::kShort, Shorts({21}));
}

void AddPreview(Directory& directory, const DngOptions& options, std::size_t offset) {
  directory.Add(254, Type::kLong, Longs({1}));
  directory.Add(256, Type::kLong, Longs({static_cast<std::uint32_t>(options.preview_width)}));
  directory.Add(257, Type::kLong, Longs({static_cast<std::uint32_t>(options.preview_height)}));
  directory.Add(258, Type::kShort, Shorts({8, 8, 8}));
  directory.Add(259, Type::kShort, Shorts({7}));
  directory.Add(262, Type::kShort, Shorts({6}));
  directory.Add(271, Type::kText, std::string("Test\0", 5));
  directory.Add(272, Type::kText, std::string("Camera\0", 7));
  directory.Add(273, Type::kLong, Longs({U32(offset)}));
  directory.Add(274, Type::kShort, Shorts({static_cast<std::uint32_t>(options.orientation)}));
  directory.Add(277, Type::kShort, Shorts({3}));
  directory.Add(278, Type::kLong, Longs({static_cast<std::uint32_t>(options.preview_height)}));
  directory.Add(279, Type::kLong, Longs({U32(options.preview.size())}));
}

// A `main` directory also contains the tags that apply to the whole file.
void AddSensor(Directory& directory, const Image& image, const DngOptions& options,
               std::size_t offset) {
  const bool main = options.preview.empty();
  const auto width = static_cast<std::uint32_t>(image.width);
  const auto height = static_cast<std::uint32_t>(image.height);
  directory.Add(254, Type::kLong, Longs({0}));
  directory.Add(256, Type::kLong, Longs({width}));
  directory.Add(257, Type::kLong, Longs({height}));
  directory.Add(258, Type::kShort, Shorts({16}));
  directory.Add(259, Type::kShort, Shorts({1}));
  directory.Add(262, Type::kShort, Shorts({32803}));
  if (main) directory.Add(271, Type::kText, std::string("Test\0", 5));
  if (main) directory.Add(272, Type::kText, std::string("Camera\0", 7));
  directory.Add(273, Type::kLong, Longs({U32(offset)}));
  if (main) {
    directory.Add(274, Type::kShort, Shorts({static_cast<std::uint32_t>(options.orientation)}));
  }
  directory.Add(277, Type::kShort, Shorts({1}));
  directory.Add(278, Type::kLong, Longs({height}));
  directory.Add(279, Type::kLong, Longs({width * height * 2}));
  directory.Add(33421, Type::kShort, Shorts({2, 2}));
  directory.Add(33422, Type::kByte, std::string("\0\x01\x01\x02", 4));
  if (main) AddCamera(directory);
  directory.Add(50717, Type::kLong, Longs({16000}));
  if (main) AddColours(directory);
}

std::string Header() {
  std::string header = "II";
  Put16(header, 42);
  Put32(header, kHeaderSize);
  return header;
}

std::string EncodeSensorOnly(const Image& image, const DngOptions& options) {
  Directory sized;
  AddSensor(sized, image, options, 0);
  Directory directory;
  AddSensor(directory, image, options, kHeaderSize + sized.Size());
  return Header() + directory.Encode(kHeaderSize) + Mosaic(image);
}

// The order in the file: directory of the preview, directory of the sensor, preview, sensor.
std::string EncodeWithPreview(const Image& image, const DngOptions& options) {
  const auto main_directory = [&](std::size_t preview_offset, std::size_t sensor_directory) {
    Directory directory;
    AddPreview(directory, options, preview_offset);
    directory.Add(330, Type::kLong, Longs({U32(sensor_directory)}));
    AddCamera(directory);
    AddColours(directory);
    return directory;
  };
  Directory sized;
  AddSensor(sized, image, options, 0);
  const std::size_t sensor_directory = kHeaderSize + main_directory(0, 0).Size();
  const std::size_t preview_offset = sensor_directory + sized.Size();
  const std::size_t padding = options.preview.size() % 2;
  Directory sensor;
  AddSensor(sensor, image, options, preview_offset + options.preview.size() + padding);
  return Header() + main_directory(preview_offset, sensor_directory).Encode(kHeaderSize) +
         sensor.Encode(sensor_directory) + options.preview + std::string(padding, '\0') +
         Mosaic(image);
}

}  // namespace

std::string EncodeDng(const Image& image, const DngOptions& options) {
  return options.preview.empty() ? EncodeSensorOnly(image, options)
                                 : EncodeWithPreview(image, options);
}

}  // namespace keldo::testing
