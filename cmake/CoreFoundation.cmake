# SPDX-License-Identifier: Apache-2.0

# Defines qv_corefoundation, which every target links that includes <CoreFoundation/CoreFoundation.h>. It
# stands for the bundled layer or the system's library.

if(APPLE)
  set(default system)
else()
  set(default bundled)
endif()
set(QV_COREFOUNDATION "${default}" CACHE STRING
    "Where CoreFoundation comes from: bundled (platform/CoreFoundation) or system")
set_property(CACHE QV_COREFOUNDATION PROPERTY STRINGS bundled system)
unset(default)

add_library(qv_corefoundation INTERFACE)

if(QV_COREFOUNDATION STREQUAL "bundled")
  target_link_libraries(qv_corefoundation INTERFACE QvCoreFoundation)
  target_compile_definitions(qv_corefoundation INTERFACE QV_COREFOUNDATION_BUNDLED)
elseif(NOT QV_COREFOUNDATION STREQUAL "system")
  message(FATAL_ERROR "QV_COREFOUNDATION is \"${QV_COREFOUNDATION}\"; it can be bundled or system")
elseif(APPLE)
  target_link_libraries(qv_corefoundation INTERFACE "-framework CoreFoundation")
else()
  set(CoreFoundation_INCLUDE_DIR "" CACHE PATH
      "With QV_COREFOUNDATION=system: the directory that holds CoreFoundation/CoreFoundation.h")
  set(CoreFoundation_LIBRARY "" CACHE FILEPATH
      "With QV_COREFOUNDATION=system: the library's file")
  if(NOT EXISTS "${CoreFoundation_INCLUDE_DIR}/CoreFoundation/CoreFoundation.h")
    message(FATAL_ERROR "QV_COREFOUNDATION is system, but CoreFoundation_INCLUDE_DIR "
            "(\"${CoreFoundation_INCLUDE_DIR}\") names no directory with "
            "CoreFoundation/CoreFoundation.h in it")
  endif()
  if(NOT EXISTS "${CoreFoundation_LIBRARY}" OR IS_DIRECTORY "${CoreFoundation_LIBRARY}")
    message(FATAL_ERROR "QV_COREFOUNDATION is system, but CoreFoundation_LIBRARY "
            "(\"${CoreFoundation_LIBRARY}\") names no file")
  endif()
  target_include_directories(qv_corefoundation SYSTEM INTERFACE "${CoreFoundation_INCLUDE_DIR}")
  target_link_libraries(qv_corefoundation INTERFACE "${CoreFoundation_LIBRARY}")
endif()
