# SPDX-License-Identifier: Apache-2.0

# Runs one case of the tests of an installed tree. CMakeLists.txt in this folder lists the cases.

cmake_minimum_required(VERSION 3.25)

set(work "${SCRATCH_DIR}/${CASE}")
file(REMOVE_RECURSE "${work}")
file(MAKE_DIRECTORY "${work}")

# run(VARIABLE COMMAND...) sets the variable to the output of the command. Fails if the command fails.
function(run variable)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result
    WORKING_DIRECTORY "${work}")
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: ${result}\n${output}${errors}")
  endif()
  set(${variable} "${output}" PARENT_SCOPE)
endfunction()

function(expect actual expected)
  if(NOT "${actual}" STREQUAL "${expected}")
    message(FATAL_ERROR "expected:\n${expected}\nactual:\n${actual}")
  endif()
endfunction()

# build(FOLDER OPTION...) builds a project against the installed tree.
function(build folder)
  run(ignored "${CMAKE_COMMAND}" -S "${folder}" -B "${work}/build" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_C_COMPILER=${C_COMPILER}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" -DCMAKE_CXX_FLAGS=-Werror ${ARGN})
  run(ignored "${CMAKE_COMMAND}" --build "${work}/build")
endfunction()

if(CASE STREQUAL "EveryFileIsInItsPlace")
  file(REMOVE_RECURSE "${PREFIX}")
  run(ignored "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${work}/first")
  file(RENAME "${work}/first" "${PREFIX}")
  file(GLOB_RECURSE files LIST_DIRECTORIES FALSE RELATIVE "${PREFIX}" "${PREFIX}/*")
  list(SORT files)
  list(JOIN files "\n" files)
  file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/installed-files.txt" expected)
  list(TRANSFORM expected REPLACE "@LIBDIR@" "${LIBDIR}")
  list(TRANSFORM expected REPLACE "@VERSION@" "${VERSION}")
  string(TOLOWER "${BUILD_TYPE}" buildType)
  list(TRANSFORM expected REPLACE "@BUILD_TYPE@" "${buildType}")
  if(NOT COREFOUNDATION STREQUAL "bundled")
    list(FILTER expected EXCLUDE REGEX "/libQvCoreFoundation\\.so$")
  endif()
  list(SORT expected)
  list(JOIN expected "\n" expected)
  expect("${files}" "${expected}")

elseif(CASE STREQUAL "HostProjectLoadsThePlugin")
  build("${SOURCE_DIR}/examples/host")
  run(listing "${CMAKE_COMMAND}" -E env "QV_CONFIG_DIR=${work}" "QV_LOG_DIR=${work}"
    "${work}/build/exampleHost" 2 tcp://127.0.0.1:9000 1 /run/a.sock)
  expect("${listing}" "1 /run/a.sock\n2 tcp://127.0.0.1:9000\n")

elseif(CASE STREQUAL "ClientProjectLinksTheLibrary")
  build("${CMAKE_CURRENT_LIST_DIR}/client")
  run(path "${CMAKE_COMMAND}" -E env QV_RUN_DIR=/elsewhere "${work}/build/client")
  expect("${path}" "/elsewhere/namingService.sock\n")

elseif(CASE STREQUAL "BuildTreeIsAPackage")
  set(PREFIX "${BUILD_DIR}")
  build("${CMAKE_CURRENT_LIST_DIR}/client")
  run(path "${CMAKE_COMMAND}" -E env QV_RUN_DIR=/elsewhere "${work}/build/client")
  expect("${path}" "/elsewhere/namingService.sock\n")
  file(REMOVE_RECURSE "${work}/build")
  build("${SOURCE_DIR}/examples/host")
  run(listing "${CMAKE_COMMAND}" -E env "QV_CONFIG_DIR=${work}" "QV_LOG_DIR=${work}"
    "${work}/build/exampleHost" 1 /run/a.sock)
  expect("${listing}" "1 /run/a.sock\n")

elseif(CASE STREQUAL "SubprojectHasTheSameNames")
  build("${CMAKE_CURRENT_LIST_DIR}/subproject" "-DNAMING_SERVICE=${SOURCE_DIR}")
  run(path "${CMAKE_COMMAND}" -E env QV_RUN_DIR=/elsewhere "${work}/build/client")
  expect("${path}" "/elsewhere/namingService.sock\n")

elseif(CASE STREQUAL "PythonFindsTheModule")
  run(path "${CMAKE_COMMAND}" -E env QV_RUN_DIR=/elsewhere
    "PYTHONPATH=${PREFIX}/lib/python3/dist-packages" PYTHONDONTWRITEBYTECODE=1
    "${PYTHON}" -c "import qvclient\nprint(qvclient.default_path())")
  expect("${path}" "/elsewhere/namingService.sock\n")

elseif(CASE STREQUAL "PkgConfigTellsTheSame")
  set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
  run(flags pkg-config --cflags --libs lorx-naming-service)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(ignored "${CXX_COMPILER}" -std=c++17 "${CMAKE_CURRENT_LIST_DIR}/client/main.cpp" -o client ${flags})
  run(path "${CMAKE_COMMAND}" -E env QV_RUN_DIR=/elsewhere "LD_LIBRARY_PATH=${PREFIX}/${LIBDIR}"
    "${work}/client")
  expect("${path}" "/elsewhere/namingService.sock\n")
  foreach(variable IN ITEMS plugin definitiondir)
    run(path pkg-config --variable=${variable} lorx-naming-service)
    string(STRIP "${path}" path)
    if(NOT EXISTS "${path}")
      message(FATAL_ERROR "${variable} is ${path}, which does not exist")
    endif()
    if(path MATCHES "//")
      message(FATAL_ERROR "${variable} is ${path}, which contains an empty name")
    endif()
  endforeach()

elseif(CASE STREQUAL "ExamplesCompileAsPrinted")
  set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
  file(GLOB examples "${PREFIX}/share/doc/lorx-naming-service-dev/examples/client/*.c")
  foreach(example IN LISTS examples)
    file(COPY "${example}" DESTINATION "${work}")
    file(STRINGS "${example}" command REGEX "^ \\*     cc ")
    string(REPLACE " *     cc " "'${C_COMPILER}' -Wall -Wextra -Wpedantic -Werror " command "${command}")
    run(ignored sh -c "${command}")
    cmake_path(GET example STEM program)
    if(NOT EXISTS "${work}/${program}")
      message(FATAL_ERROR "the command made no ${program}: ${command}")
    endif()
  endforeach()

elseif(CASE STREQUAL "QvhostFindsThePlugin")
  run(made "${PREFIX}/bin/qvhost" --config-dir "${work}/state" init)
  expect("${made}" "made ${work}/state/namingService.conf.plist\n")
  run(listing "${PREFIX}/bin/qvhost" --config-dir "${work}/state" list --offline)
  expect("${listing}" "no services\n")

else()
  message(FATAL_ERROR "there is no case ${CASE}")
endif()
