# Warnings, hardening and sanitizers: one interface target that all of the project's own code links, and within it
# one of the hardening alone, for generated code.
option(MORVANE_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(MORVANE_CXX11_ABI "Use the C++11 string ABI; must match the device's libVesk" ON)
option(MORVANE_COVERAGE "Count what the service's own code runs through, for gcovr" OFF)
set(MORVANE_SANITIZE "" CACHE STRING "Value for -fsanitize=, e.g. address,undefined or thread")

add_library(morvane_hardening INTERFACE)
add_library(morvane_flags INTERFACE)
target_link_libraries(morvane_flags INTERFACE morvane_hardening)

target_compile_options(morvane_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2
  $<$<BOOL:${MORVANE_WARNINGS_AS_ERRORS}>:-Werror>)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # Notes, page after page, that compilers of before 2017 passed some arguments otherwise.
  target_compile_options(morvane_flags INTERFACE -Wno-psabi)
endif()

# A std::string crosses the boundary to libVesk, so both sides must agree on its layout.
target_compile_definitions(morvane_flags INTERFACE
  _GLIBCXX_USE_CXX11_ABI=$<BOOL:${MORVANE_CXX11_ABI}>)

# A 32-bit processor also gets files beyond 2 GiB and inode numbers beyond 32 bits.
target_compile_definitions(morvane_flags INTERFACE _FILE_OFFSET_BITS=64)

if(MORVANE_SANITIZE)
  add_compile_options(-fsanitize=${MORVANE_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${MORVANE_SANITIZE})
  if(MORVANE_SANITIZE MATCHES undefined)
    # Its look at an object's type opens a pipe and takes a full descriptor table for a wrong type.
    add_compile_options(-fno-sanitize=vptr)
  endif()
else()
  target_compile_options(morvane_hardening INTERFACE
    -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)")
    target_compile_options(morvane_hardening INTERFACE -mbranch-protection=standard)
  endif()
  # The third level, which also knows sizes that are computed, takes gcc 12 or clang 9; older ones warn of it.
  set(fortify_level 3)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    set(fortify_level 2)
  endif()
  target_compile_definitions(morvane_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=${fortify_level}>)
endif()

if(MORVANE_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "MORVANE_BUILD_FUZZERS takes clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# morvane_count_coverage(TARGET): its lines and branches are counted by each process that runs them, also where
# several threads do. Whatever links it needs the counters, and the tests write them where a process ends early.
function(morvane_count_coverage target)
  if(MORVANE_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fprofile-abs-path)
  endif()
endfunction()
if(MORVANE_COVERAGE)
  add_link_options(--coverage)
endif()

# What nothing calls is left out of a release.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
endif()

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed -Wl,--enable-new-dtags)
