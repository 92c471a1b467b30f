# SPDX-License-Identifier: Apache-2.0

# qv_export_only(<shared library> <file>) makes the library export only the symbols that the file lists, one
# name a line. Hidden visibility alone leaves templates of the standard library visible. Some of these prevent
# the unloading of a library.
function(qv_export_only target file)
  file(STRINGS "${file}" names)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  set(list "${CMAKE_CURRENT_BINARY_DIR}/${target}.exports")
  if(APPLE)
    list(TRANSFORM names PREPEND "_")
    list(JOIN names "\n" text)
    file(CONFIGURE OUTPUT "${list}" CONTENT "${text}\n" @ONLY)
    target_link_options(${target} PRIVATE "LINKER:-exported_symbols_list,${list}")
  else()
    list(JOIN names "; " text)
    file(CONFIGURE OUTPUT "${list}" CONTENT "{ global: ${text}; local: *; };\n" @ONLY)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${list}")
  endif()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${list}")
endfunction()
