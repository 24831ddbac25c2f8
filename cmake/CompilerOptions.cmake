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
    -fstack-protector-strong
    "$<$<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:KELDO_IS_TEST>>>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  target_link_options(keldo_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
# The tests' own code is not optimised: most of it is what GoogleTest's macros expand to, and compiling
# it quickly matters more than running it quickly. FORTIFY needs an optimised build.
add_library(keldo_test_options INTERFACE)
target_link_libraries(keldo_test_options INTERFACE keldo_options)
target_compile_options(keldo_test_options INTERFACE -O0)
if(KELDO_COVERAGE)
  target_compile_options(keldo_options INTERFACE --coverage)
  target_link_options(keldo_options INTERFACE --coverage)
endif()

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
