# SPDX-License-Identifier: Apache-2.0
# Warnings, hardening and sanitizers for all targets.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

include_directories(${CMAKE_SOURCE_DIR})
# Raster streams may exceed 2 GB on 32-bit processors, too.
add_compile_definitions(_FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2)
if(BRENVELLIS_WERROR)
  add_compile_options(-Werror)
endif()

# These defaults come first, so that flags of the user or the distribution override them.
string(PREPEND CMAKE_CXX_FLAGS "-fstack-protector-strong -ffunction-sections -fdata-sections ")
string(PREPEND CMAKE_EXE_LINKER_FLAGS "-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack ")

if(BRENVELLIS_SANITIZE)
  # A backend or a raster stream may put any integer into a CUPS enumeration, so loading an unnamed value is valid.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=enum -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize=enum)
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  # Replaces the compiler's own level, if any.
  string(PREPEND CMAKE_CXX_FLAGS "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 ")
endif()

if(BRENVELLIS_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  # The standard library's bounds checks count as findings.
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

# brenvellis_add_if(FOLDER VARIABLE...): adds FOLDER if every VARIABLE is true, and otherwise prints what is missing. The
# filter can be built without these folders.
function(brenvellis_add_if folder)
  foreach(needed IN LISTS ARGN)
    if(NOT ${needed})
      message(STATUS "Skipping ${folder}/: ${needed} is not set (see INSTALL.md)")
      return()
    endif()
  endforeach()
  add_subdirectory(${folder})
endfunction()
