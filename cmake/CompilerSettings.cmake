# What every target of the project is compiled with.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# A library shows what its header marks for export and nothing else.
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_compile_options(-Wall -Wextra)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks what a lock guards (QvSystem/ThreadSafety.h).
  add_compile_options(-Wthread-safety)
endif()
if(QV_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# QV_SANITIZED: something watches each piece of memory that is allocated and freed, and brings an
# allocator of its own. memcheck needs nothing built in.
if(QV_SANITIZE)
  add_compile_definitions(QV_SANITIZED)
  add_compile_options(-fno-omit-frame-pointer)
  if(NOT QV_SANITIZE STREQUAL "memcheck")
    add_compile_options(-fsanitize=${QV_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${QV_SANITIZE})
  endif()
endif()

# The code under test tells the fuzzer where an input led; the targets themselves link its main().
if(QV_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# The counters stand in a file that every process maps (scripts/coverage names it), so that those count
# that are killed or end without their exit handlers. That takes the relocation, and, since many
# processes and threads share a counter, the atomic steps.
if(QV_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic
    "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(-fprofile-instr-generate)
endif()
