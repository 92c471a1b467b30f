# SPDX-License-Identifier: Apache-2.0

# Checks that, outside the CoreFoundation layer, only QvCFHolder.h releases CoreFoundation's objects.

cmake_minimum_required(VERSION 3.25)

set(holder "platform/QvCF/include/QvCFHolder.h")
file(GLOB_RECURSE files RELATIVE "${SOURCE_DIR}"
  "${SOURCE_DIR}/src/*.cpp" "${SOURCE_DIR}/src/*.h" "${SOURCE_DIR}/qvhost/*.cpp"
  "${SOURCE_DIR}/qvhost/*.h" "${SOURCE_DIR}/platform/*.cpp" "${SOURCE_DIR}/platform/*.h")
list(FILTER files EXCLUDE REGEX "^platform/CoreFoundation/")
if(NOT holder IN_LIST files)
  message(FATAL_ERROR "${holder} is missing")
endif()
foreach(name IN LISTS files)
  file(STRINGS "${SOURCE_DIR}/${name}" lines REGEX "CFRelease")
  if(lines AND NOT name STREQUAL holder)
    message(SEND_ERROR "${name} releases objects without ${holder}: ${lines}")
  endif()
endforeach()
