# The process side of the converter, and the program.

# Of the platform's Linux implementation only what is named here: the rest brings libraries whose
# loading takes longer than a thumbnail.
set(platform_linux_dir ${PROJECT_SOURCE_DIR}/src/platform/linux)
add_library(convert_platform STATIC
  ${platform_linux_dir}/converter_names.cpp
  ${platform_linux_dir}/file_types.cpp
  ${platform_linux_dir}/standard_descriptors.cpp
  ${platform_linux_dir}/text.cpp
  ${platform_linux_dir}/tiff_directory.cpp)
target_link_libraries(convert_platform PUBLIC keldo_options)

add_library(convert_process STATIC
  argument_parser.cpp
  hand_over.cpp
  input_file.cpp
  message.cpp
  output_files.cpp
  sandbox.cpp
  supervisor.cpp
  syscall_filter.cpp)
target_link_libraries(convert_process PUBLIC convert_platform keldo_options)

add_library(keldo_convert STATIC convert_main.cpp version.cpp)
target_compile_definitions(keldo_convert PRIVATE KELDO_VERSION="${PROJECT_VERSION}")
target_link_libraries(keldo_convert PUBLIC convert_process convert_readers convert_pixels)

# The policy under which ImageMagick runs, where the program finds it without being installed.
configure_file(${PROJECT_SOURCE_DIR}/config/convert-policy/policy.xml
  ${PROJECT_BINARY_DIR}/share/convert-thumb/policy.xml COPYONLY)

# It runs two or three times for a photo, so every library that has to be loaded counts.
add_executable(convert-thumb main.cpp)
target_link_libraries(convert-thumb PRIVATE keldo_convert keldo_options)
target_link_options(convert-thumb PRIVATE -Wl,--as-needed)
if(NOT KELDO_SANITIZE)
  target_link_options(convert-thumb PRIVATE -static-libstdc++ -static-libgcc)
endif()

if(KELDO_BUILD_TESTS)
  keldo_unit_test(convert_process_test
    SOURCES
      argument_parser_test.cpp
      hand_over_test.cpp
      input_file_test.cpp
      message_test.cpp
      output_files_test.cpp
      sandbox_limits_test.cpp
      sandbox_test.cpp
      supervisor_test.cpp
    LIBS convert_process)
  # The whole program, with the real readers and the real ImageMagick.
  keldo_unit_test(convert_main_test
    SOURCES convert_main_test.cpp
    LIBS keldo_convert test_pictures)
  add_dependencies(convert_main_test convert-thumb)
  target_compile_definitions(convert_main_test PRIVATE
    KELDO_CONVERT_THUMB="$<TARGET_FILE:convert-thumb>"
    KELDO_VERSION="${PROJECT_VERSION}")
endif()
