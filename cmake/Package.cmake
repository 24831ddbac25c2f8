# What is installed beside the programs, and the Debian package. scripts/package makes it.
include(GNUInstallDirs)

install(TARGETS keldothumbctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

option(KELDO_PACKAGE "Install everything that the Debian package contains; needs the prefix /usr" OFF)
if(NOT KELDO_PACKAGE)
  return()
endif()
# The service files, the programs and the documentation contain these paths.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "The package needs -DCMAKE_INSTALL_PREFIX=/usr")
endif()

set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(man_pages ${PROJECT_SOURCE_DIR}/docs/man)
set(doc_dir /usr/share/doc/${PROJECT_NAME})

# A strict umask on the build machine must not change the package.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# keldo_install_compressed(SOURCE DIRECTORY NAME): as NAME.gz, without the time of the compression.
function(keldo_install_compressed source directory name)
  set(compressed ${PROJECT_BINARY_DIR}/compressed/${name}.gz)
  add_custom_command(OUTPUT ${compressed}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/compressed
    COMMAND gzip -9nc < ${source} > ${compressed}
    DEPENDS ${source} VERBATIM)
  add_custom_target(compressed_${name} ALL DEPENDS ${compressed})
  install(FILES ${compressed} DESTINATION ${directory})
endfunction()

foreach(page IN ITEMS convert-thumb.1 keldothumb.1 keldothumbctl.1 thumb.conf.5 keldoindexplugind.8)
  string(REGEX MATCH "[0-9]$" section ${page})
  keldo_install_compressed(${man_pages}/${page} /usr/share/man/man${section} ${page})
endforeach()
keldo_install_compressed(${packaging}/debian/changelog ${doc_dir} changelog)
keldo_install_compressed(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${doc_dir} CHANGELOG.md)
install(FILES ${packaging}/debian/copyright ${packaging}/debian/README.Debian
  DESTINATION ${doc_dir})
install(FILES ${PROJECT_SOURCE_DIR}/docs/guides/gallery.md
  ${PROJECT_SOURCE_DIR}/docs/guides/parallel.md
  DESTINATION ${doc_dir}/guides)

install(FILES ${PROJECT_SOURCE_DIR}/config/thumb.conf DESTINATION /etc/keldothumb)
install(FILES ${packaging}/default/keldothumb-watch DESTINATION /etc/default)
install(FILES
  ${packaging}/systemd/keldoindexplugind.service
  ${packaging}/systemd/keldothumb-watch.service
  DESTINATION /usr/lib/systemd/system)
install(FILES ${packaging}/completions/keldothumbctl.bash
  DESTINATION /usr/share/bash-completion/completions RENAME keldothumbctl)
install(FILES ${packaging}/completions/_keldothumbctl DESTINATION /usr/share/zsh/vendor-completions)
install(FILES ${packaging}/debian/lintian-overrides
  DESTINATION /usr/share/lintian/overrides RENAME ${PROJECT_NAME})

install(TARGETS convert-thumb RUNTIME DESTINATION /usr/keldo/bin)
install(FILES ${PROJECT_SOURCE_DIR}/config/convert-policy/policy.xml
  DESTINATION /usr/keldo/share/convert-thumb)

file(STRINGS ${packaging}/debian/changelog changelog_top LIMIT_COUNT 1)
if(NOT changelog_top MATCHES "^${PROJECT_NAME} \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR
    "packaging/debian/changelog begins with another version than ${PROJECT_VERSION}")
endif()
file(READ ${packaging}/debian/description long_description)
string(STRIP "${long_description}" long_description)

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The keldothumb authors <keldothumb@example.org>")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "thumbnail generator for photo libraries")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION ${long_description})
# dpkg-shlibdeps finds the linked libraries. The ones listed here are loaded on demand; the other
# packages contain the programs that we run.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "dcraw, imagemagick, libgif7, libheif1, libjpeg-turbo-progs, libpng16-16, libtiff6, libwebp7")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${packaging}/debian/conffiles
  ${packaging}/debian/postinst
  ${packaging}/debian/postrm
  ${packaging}/debian/prerm)
include(CPack)
