# SPDX-License-Identifier: Apache-2.0

# Sets the compiler options of every target of the project.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# A library exports only the symbols that its header marks.
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_compile_options(-Wall -Wextra)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks that the locks guard what QvSystem/ThreadSafety.h's annotations say.
  add_compile_options(-Wthread-safety)
endif()
if(QV_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# QV_SANITIZED tells the tests that a sanitizer or valgrind replaces the allocator. valgrind's memcheck needs
# no other compiler options.
if(QV_SANITIZE)
  add_compile_definitions(QV_SANITIZED)
  add_compile_options(-fno-omit-frame-pointer)
  if(NOT QV_SANITIZE STREQUAL "memcheck")
    add_compile_options(-fsanitize=${QV_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${QV_SANITIZE})
  endif()
endif()

# The code under test reports its coverage to the fuzzer. The fuzz targets link the fuzzer's main().
if(QV_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# The counters are in a file that every process maps (scripts/coverage names it), so that processes which are
# killed or skip their exit handlers count also. The mapping needs the relocation. The updates are atomic,
# because many processes and threads share a counter. A process for which no file is named, such as the generator
# during the build, keeps no counts.
#
# The objects do not name the build folder, so a compiler cache may take them from another checkout.
# scripts/coverage tells llvm-cov the folder.
if(QV_COVERAGE)
  add_compile_options(-fprofile-instr-generate=/dev/null "SHELL:-Xclang -fprofile-update=atomic"
    -fcoverage-mapping -fcoverage-compilation-dir=. "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(-fprofile-instr-generate)
endif()
