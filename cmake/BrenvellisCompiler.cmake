# SPDX-License-Identifier: Apache-2.0
# Warnings, hardening and sanitizers: the same for every target of the tree.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

include_directories(${CMAKE_SOURCE_DIR})
# A raster stream may be longer than 2 GB, on processors of 32 bits, too.
add_compile_definitions(_FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2)
if(BRENVELLIS_WERROR)
  add_compile_options(-Werror)
endif()

# Defaults, before the flags of the user or the distribution, so that those win.
string(PREPEND CMAKE_CXX_FLAGS "-fstack-protector-strong -ffunction-sections -fdata-sections ")
string(PREPEND CMAKE_EXE_LINKER_FLAGS "-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack ")

if(BRENVELLIS_SANITIZE)
  # The CUPS enumerations come from C: any integer that a backend or a raster stream put there is a
  # value that the code must name, so loading one is no error.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=enum -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize=enum)
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  # The compiler may already set a level.
  string(PREPEND CMAKE_CXX_FLAGS "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 ")
endif()

if(BRENVELLIS_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  # A step out of a span or an array by the standard library's own means is a finding too.
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

# brenvellis_add_if(FOLDER VARIABLE...): adds FOLDER when every VARIABLE is true; otherwise says what is
# missing, since a build without it is still a good build of the filter.
function(brenvellis_add_if folder)
  foreach(needed IN LISTS ARGN)
    if(NOT ${needed})
      message(STATUS "${folder}/ is left out: ${needed} is not set (see README.md, \"Build\")")
      return()
    endif()
  endforeach()
  add_subdirectory(${folder})
endfunction()
