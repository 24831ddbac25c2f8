# The gallery page: its HTML, style and script are compiled into the program.
set(gallery_dir ${CMAKE_CURRENT_SOURCE_DIR}/gallery)
set(gallery_pieces ${CMAKE_CURRENT_BINARY_DIR}/gallery_page_pieces.cpp)
add_custom_command(OUTPUT ${gallery_pieces}
  COMMAND ${CMAKE_COMMAND} -DFROM=${gallery_dir} -DTO=${gallery_pieces}
          -P ${gallery_dir}/embed_page.cmake
  DEPENDS
    ${gallery_dir}/embed_page.cmake
    ${gallery_dir}/page.css
    ${gallery_dir}/page.html
    ${gallery_dir}/page.js
    ${gallery_dir}/page_grid.js
    ${gallery_dir}/page_library.js
    ${gallery_dir}/page_viewer.js
  VERBATIM)

target_sources(keldothumbctl_lib PRIVATE
  gallery/gallery.cpp
  gallery/gallery_command.cpp
  gallery/page.cpp
  gallery/page_data.cpp
  gallery/script_json.cpp
  gallery/url.cpp
  ${gallery_pieces})

if(KELDO_BUILD_TESTS)
  keldo_unit_test(ctl_gallery_test
    SOURCES
      gallery/gallery_test.cpp
      gallery/page_data_test.cpp
      gallery/page_test.cpp
      gallery/script_json_test.cpp
      gallery/url_test.cpp
    LIBS keldothumbctl_lib syslog_capture test_support)

  # Of the system's own Python, which has Debian's modules; -B leaves nothing in the source tree.
  add_test(NAME GalleryPage.InABrowser
    COMMAND /usr/bin/python3 -B ${PROJECT_SOURCE_DIR}/tests/e2e/gallery_browser_test.py
            $<TARGET_FILE:keldothumbctl> ${PROJECT_SOURCE_DIR}/config/thumb.conf)
  set_tests_properties(GalleryPage.InABrowser PROPERTIES LABELS e2e TIMEOUT 120)
endif()
