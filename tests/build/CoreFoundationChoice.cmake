# SPDX-License-Identifier: Apache-2.0

# Tests one case of the option QV_COREFOUNDATION.

set(otherIncludeDir "${SCRATCH_DIR}/other/include")
set(otherLibrary "${SCRATCH_DIR}/other/libCoreFoundation.so")
file(REMOVE_RECURSE "${SCRATCH_DIR}")
# The files stay empty, because the test builds nothing.
file(WRITE "${otherIncludeDir}/CoreFoundation/CoreFoundation.h" "")
file(WRITE "${otherLibrary}" "")

# configure(<option>...) configures the project and sets `result` and `output`. Each run of white space in
# `output` becomes one blank.
macro(configure)
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${SCRATCH_DIR}/build" -G "${GENERATOR}"
            "-DCMAKE_C_COMPILER=${C_COMPILER}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
            -DQV_BUILD_TESTS=OFF -DQV_BUILD_BENCHMARKS=OFF ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
endmacro()

function(expect_success)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "the configuration failed: ${output}")
  endif()
endfunction()

function(expect_failure text)
  string(FIND "${output}" "${text}" position)
  if(result EQUAL 0 OR position EQUAL -1)
    message(FATAL_ERROR "expected to fail with \"${text}\"; result ${result}: ${output}")
  endif()
endfunction()

# expect_command(<yes or no> <text>) checks whether the text is in a compile command.
function(expect_command expected text)
  file(READ "${SCRATCH_DIR}/build/compile_commands.json" commands)
  string(FIND "${commands}" "${text}" position)
  if(position EQUAL -1)
    set(found no)
  else()
    set(found yes)
  endif()
  if(NOT found STREQUAL expected)
    message(FATAL_ERROR "\"${text}\" in a compile command: ${found}, expected ${expected}")
  endif()
endfunction()

if(CASE STREQUAL "bundled")
  configure(-DQV_COREFOUNDATION=bundled)
  expect_success()
  expect_command(yes "${SOURCE_DIR}/platform/CoreFoundation/source/")
elseif(CASE STREQUAL "system")
  configure(-DQV_COREFOUNDATION=system "-DCoreFoundation_INCLUDE_DIR=${otherIncludeDir}"
            "-DCoreFoundation_LIBRARY=${otherLibrary}")
  expect_success()
  expect_command(yes "-isystem ${otherIncludeDir}")
  expect_command(no "platform/CoreFoundation")
elseif(CASE STREQUAL "unknown")
  configure(-DQV_COREFOUNDATION=other)
  expect_failure("QV_COREFOUNDATION is \"other\"; it can be bundled or system")
elseif(CASE STREQUAL "noIncludeDir")
  configure(-DQV_COREFOUNDATION=system "-DCoreFoundation_LIBRARY=${otherLibrary}")
  expect_failure("CoreFoundation_INCLUDE_DIR (\"\") names no directory")
  configure(-DQV_COREFOUNDATION=system "-DCoreFoundation_LIBRARY=${otherLibrary}"
            "-DCoreFoundation_INCLUDE_DIR=${SCRATCH_DIR}/other")
  expect_failure("CoreFoundation_INCLUDE_DIR (\"${SCRATCH_DIR}/other\") names no directory")
elseif(CASE STREQUAL "noLibrary")
  configure(-DQV_COREFOUNDATION=system "-DCoreFoundation_INCLUDE_DIR=${otherIncludeDir}")
  expect_failure("CoreFoundation_LIBRARY (\"\") names no file")
  configure(-DQV_COREFOUNDATION=system "-DCoreFoundation_INCLUDE_DIR=${otherIncludeDir}"
            "-DCoreFoundation_LIBRARY=${SCRATCH_DIR}/missing.so")
  expect_failure("CoreFoundation_LIBRARY (\"${SCRATCH_DIR}/missing.so\") names no file")
else()
  message(FATAL_ERROR "there is no case \"${CASE}\"")
endif()
