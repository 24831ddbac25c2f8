# What every target of ours is compiled and linked with: strict warnings, the hardening that
# Debian's own packages use, and the sanitizer and coverage builds of the presets.
option(KELDO_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KELDO_COVERAGE "Build for line coverage with gcov" OFF)

add_library(keldo_options INTERFACE)
target_compile_features(keldo_options INTERFACE cxx_std_20)
target_compile_options(keldo_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror)
target_include_directories(keldo_options INTERFACE ${PROJECT_SOURCE_DIR}/src)

if(KELDO_SANITIZE)
  target_compile_options(keldo_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(keldo_options INTERFACE -fsanitize=address,undefined)
else()
  target_compile_options(keldo_options INTERFACE
    -fstack-protector-strong $<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  target_link_options(keldo_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
# For the tests' own code, most of which is what GoogleTest's macros stand for: to be compiled soon
# matters more than to be fast.
add_library(keldo_test_options INTERFACE)
target_link_libraries(keldo_test_options INTERFACE keldo_options)
if(KELDO_SANITIZE)
  target_compile_options(keldo_test_options INTERFACE -O0)
else()
  target_compile_options(keldo_test_options INTERFACE $<$<CONFIG:Release>:-O1>)
endif()
if(KELDO_COVERAGE)
  target_compile_options(keldo_options INTERFACE --coverage)
  target_link_options(keldo_options INTERFACE --coverage)
endif()

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
