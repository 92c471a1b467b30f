# SPDX-License-Identifier: Apache-2.0

# Builds for macOS 11 and later on another system. scripts/macos uses this toolchain file. A build on macOS itself
# does not need it.
#
# Before CMake runs, scripts/macos lays out a directory that takes the place of the system and of the packages:
#
#   include/      the headers of the packages, and of the system libraries that the compiler does not bring
#   lib/          text stubs of the system's libraries, the C++ runtime and Protocol Buffers' lite runtime
#   Frameworks/   the stub of CoreFoundation, with the headers of platform/CoreFoundation
#
# Each library contains the C++ runtime that it uses. So the libraries compare the types of exceptions by their
# names. The addresses of a type's information differ from one library to the next.

set(QV_MACOS_ARCH "" CACHE STRING "The processor to build for: x86_64 or arm64")
set(QV_MACOS_ROOT "" CACHE PATH "The directory that scripts/macos lays out for the processor")
set(QV_MACOS_ZIG "" CACHE FILEPATH "The compiler: the program zig")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QV_MACOS_ARCH QV_MACOS_ROOT QV_MACOS_ZIG)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${QV_MACOS_ARCH}")

if(QV_MACOS_ARCH STREQUAL "arm64")
  set(target aarch64-macos.11.0)
else()
  set(target x86_64-macos.11.0)
endif()
set(CMAKE_C_COMPILER "${QV_MACOS_ZIG}" cc -target ${target})
set(CMAKE_CXX_COMPILER "${QV_MACOS_ZIG}" c++ -target ${target})
unset(target)
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT
    "-isystem ${QV_MACOS_ROOT}/include -iframework ${QV_MACOS_ROOT}/Frameworks")
endforeach()
string(APPEND CMAKE_CXX_FLAGS_INIT " -D_LIBCPP_TYPEINFO_COMPARISON_IMPLEMENTATION=2")

# The linker is LLVM's, because the compiler's own linker does not know lists of exports.
find_program(QV_MACOS_LINKER ld64.lld-19 REQUIRED)
find_program(CMAKE_AR llvm-ar REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14 REQUIRED)
set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/macos/link.cmake")
# Checks of the compiler link nothing, because the C++ runtime is not there when the first of them runs.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# An installed file is the built one. A change would end the signature that the linker gives to files for arm64.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

set(CMAKE_FIND_ROOT_PATH "${QV_MACOS_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${QV_MACOS_ROOT}/lib/pkgconfig")
foreach(package IN ITEMS CLI11 fmt nlohmann_json spdlog)
  set(${package}_DIR "${CMAKE_CURRENT_LIST_DIR}/macos")
endforeach()
# iconv() is in a library of its own on macOS. The check would find it in libSystem, because it links nothing.
set(Iconv_IS_BUILT_IN OFF)
set(Iconv_INCLUDE_DIR "${QV_MACOS_ROOT}/include")
