# The readers of every format. Codecs but JPEG are loaded when a file needs them: of those only the
# headers are used, and the tests link them to write their inputs.
target_sources(convert_readers PRIVATE
  bmp_reader.cpp
  codec_library.cpp
  exif_orientation.cpp
  few_processors.cpp
  flatten.cpp
  format.cpp
  gif_reader.cpp
  heif_codec.cpp
  heif_reader.cpp
  jpeg_reader.cpp
  open_image.cpp
  png_reader.cpp
  pnm_reader.cpp
  tiff_layout.cpp
  tiff_reader.cpp
  tiff_source.cpp
  webp_reader.cpp)
target_link_libraries(convert_readers PRIVATE ${CMAKE_DL_LIBS} ${KELDO_STATIC_JPEG})

if(KELDO_BUILD_TESTS)
  pkg_check_modules(CODECS REQUIRED IMPORTED_TARGET libtiff-4 libwebp zlib)
  keldo_unit_test(convert_readers_test
    SOURCES
      bmp_reader_test.cpp
      damaged_files_test.cpp
      exif_orientation_test.cpp
      format_test.cpp
      gif_reader_test.cpp
      heif_reader_test.cpp
      png_reader_test.cpp
      pnm_reader_test.cpp
      reader_test_support.cpp
      sample_files.cpp
      sample_heif.cpp
      tiff_reader_test.cpp
      webp_reader_test.cpp
    LIBS convert_readers PkgConfig::CODECS PkgConfig::LIBHEIF)
endif()
