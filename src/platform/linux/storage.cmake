# Files, metadata directories, media measuring, the embedded index and the daemons' packets.
target_sources(platform_linux PRIVATE
  atomic_file.cpp
  auto_send_recv_packet.cpp
  conf_parser.cpp
  ea_dir.cpp
  embedded_index.cpp
  exif_header.cpp
  file.cpp
  file_content.cpp
  file_types.cpp
  filesystem_type.cpp
  glob_files.cpp
  heif_header.cpp
  image_header.cpp
  index_database.cpp
  index_ipc.cpp
  index_queue.cpp
  index_records.cpp
  jpeg_header.cpp
  json_line.cpp
  key_value_file.cpp
  last_error.cpp
  locked_file.cpp
  media_info.cpp
  mount_type.cpp
  path_key.cpp
  simple_header.cpp
  system.cpp
  text.cpp
  tiff_directory.cpp)
target_link_libraries(platform_linux
  PUBLIC PkgConfig::JSONCPP
  PRIVATE PkgConfig::SQLITE PkgConfig::EXIV2 PkgConfig::INIH ${CMAKE_DL_LIBS})
# libheif is loaded when a file needs it; only its header is used here.
target_include_directories(platform_linux PRIVATE ${LIBHEIF_INCLUDE_DIRS})

if(KELDO_BUILD_TESTS)
  # Never sanitized: the HEVC encoder behind the library leaks.
  add_executable(make_heif make_heif.cpp)
  target_compile_features(make_heif PRIVATE cxx_std_20)
  target_link_libraries(make_heif PRIVATE PkgConfig::LIBHEIF)
  set_target_properties(make_heif PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)

  keldo_unit_test(platform_storage_test
    SOURCES
      auto_send_recv_packet_test.cpp
      conf_parser_test.cpp
      ea_dir_test.cpp
      embedded_index_test.cpp
      file_test.cpp
      file_types_test.cpp
      filesystem_type_test.cpp
      glob_files_test.cpp
      image_header_test.cpp
      index_database_test.cpp
      index_queue_test.cpp
      index_records_test.cpp
      jpeg_header_test.cpp
      json_line_test.cpp
      key_value_file_test.cpp
      media_info_test.cpp
      mount_type_test.cpp
      path_key_test.cpp
      simple_header_test.cpp
      system_test.cpp
      text_test.cpp
      tiff_directory_test.cpp
    LIBS platform_linux syslog_capture test_pictures test_support PkgConfig::SQLITE)
  target_compile_definitions(platform_storage_test PRIVATE
    KELDO_MAKE_HEIF="$<TARGET_FILE:make_heif>")
  add_dependencies(platform_storage_test make_heif)
endif()
