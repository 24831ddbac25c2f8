// Measures the JPEG work on finished thumbnails, which no converter can avoid.
//
//   bench_floor THUMBNAIL...
//
// Prints a line for each thumbnail: the CPU time of decoding it and of encoding it again from
// memory, in microseconds. The encoder uses the same components and sampling, quality 90, and the
// standard Huffman tables, which is the least work.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>
// Needs the types of cstdio.
#include <jpeglib.h>

namespace {

constexpr int kQuality = 90;

struct Image {
  unsigned width = 0;
  unsigned height = 0;
  int components = 0;
  int horizontal_sampling = 1;
  int vertical_sampling = 1;
  std::vector<unsigned char> samples;
};

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void Fail(const char* path) {
  std::perror(path);
  std::exit(1);
}

std::vector<unsigned char> ReadFile(const char* path) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "rbe"));
  if (!file) Fail(path);
  std::vector<unsigned char> content;
  unsigned char buffer[65536];
  for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;) {
    content.insert(content.end(), buffer, buffer + count);
  }
  if (std::ferror(file.get()) != 0) Fail(path);
  return content;
}

// libjpeg's own error handler prints the error and exits, which is what we want here.
Image Decode(const std::vector<unsigned char>& file) {
  jpeg_decompress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&jpeg);
  jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&jpeg, TRUE);
  jpeg_start_decompress(&jpeg);
  Image image{jpeg.output_width,
              jpeg.output_height,
              jpeg.output_components,
              jpeg.comp_info[0].h_samp_factor,
              jpeg.comp_info[0].v_samp_factor,
              {}};
  const std::size_t stride = std::size_t{image.width} * static_cast<unsigned>(image.components);
  image.samples.resize(stride * image.height);
  while (jpeg.output_scanline < jpeg.output_height) {
    JSAMPROW row = image.samples.data() + jpeg.output_scanline * stride;
    jpeg_read_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_decompress(&jpeg);
  jpeg_destroy_decompress(&jpeg);
  return image;
}

void Encode(Image& image) {
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* file = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &file, &size);
  jpeg.image_width = image.width;
  jpeg.image_height = image.height;
  jpeg.input_components = image.components;
  jpeg.in_color_space = image.components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, kQuality, TRUE);
  jpeg.comp_info[0].h_samp_factor = image.horizontal_sampling;
  jpeg.comp_info[0].v_samp_factor = image.vertical_sampling;
  jpeg_start_compress(&jpeg, TRUE);
  const std::size_t stride = std::size_t{image.width} * static_cast<unsigned>(image.components);
  while (jpeg.next_scanline < jpeg.image_height) {
    JSAMPROW row = image.samples.data() + jpeg.next_scanline * stride;
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  std::free(file);
}

long long CpuMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::vector<unsigned char> file = ReadFile(argv[i]);
    const long long start = CpuMicroseconds();
    Image image = Decode(file);
    const long long decoded = CpuMicroseconds();
    Encode(image);
    std::printf("%lld %lld\n", decoded - start, CpuMicroseconds() - decoded);
  }
  return 0;
}
