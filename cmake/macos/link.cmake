# SPDX-License-Identifier: Apache-2.0

# Replaces CMake's rules for linking with calls of the linker, without the compiler between.

set(link "\"${QV_MACOS_LINKER}\" -arch ${QV_MACOS_ARCH} -platform_version macos 11.0 11.0 -no_fixup_chains \
-dead_strip_dylibs -F \"${QV_MACOS_ROOT}/Frameworks\" -L \"${QV_MACOS_ROOT}/lib\" <LINK_FLAGS>")
set(runtime "\"${QV_MACOS_ROOT}/lib/private_typeinfo.o\" -lc++ -lc++abi -lcompiler_rt -lSystem")
foreach(language C CXX)
  set(CMAKE_${language}_CREATE_SHARED_LIBRARY
    "${link} -dylib -o <TARGET> <SONAME_FLAG> <TARGET_INSTALLNAME_DIR><TARGET_SONAME> <OBJECTS> <LINK_LIBRARIES> ${runtime}")
  set(CMAKE_${language}_LINK_EXECUTABLE
    "${link} <OBJECTS> -o <TARGET> <LINK_LIBRARIES> ${runtime}")
  set(CMAKE_${language}_LINKER_WRAPPER_FLAG "")
  set(CMAKE_${language}_LINKER_WRAPPER_FLAG_SEP "")
  set(CMAKE_SHARED_LIBRARY_RUNTIME_${language}_FLAG "-rpath ")
  set(CMAKE_SHARED_LIBRARY_RUNTIME_${language}_FLAG_SEP "")
endforeach()
unset(link)
unset(runtime)
