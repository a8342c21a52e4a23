# Installs the build into a scratch prefix, then configures, builds and runs
# a consumer that finds the package with find_package.
file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
  RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "install failed")
endif()
foreach(expected lib/libqeContouringLib.so.1.0 lib/libqeContouringLib.so.1 include/ctr/BakedTriangles.h
                 include/qePlatform/qe/qeTriMesh.h lib/cmake/qeContouringLib/qeContouringLibConfig.cmake)
  if(NOT EXISTS "${WORK_DIR}/prefix/${expected}")
    message(FATAL_ERROR "install lacks ${expected}")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/build"
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_CXX_FLAGS=${CONSUMER_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${CONSUMER_FLAGS}"
  RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build "${WORK_DIR}/build" RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND "${WORK_DIR}/build/consumer" RESULT_VARIABLE result OUTPUT_VARIABLE output)
if(NOT result EQUAL 0 OR NOT output MATCHES "1\\.0\\.0\\.1297 hidden 1 borders 3 hidden 0")
  message(FATAL_ERROR "consumer run failed: ${output}")
endif()

# The installed tool finds its library and its reader modules relative to
# itself, in any prefix, and never in the build tree.
if(EXISTS "${WORK_DIR}/prefix/bin/contour")
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH
      "${WORK_DIR}/prefix/bin/contour" --demo -q -o "${WORK_DIR}/demo.svg"
    RESULT_VARIABLE result ERROR_VARIABLE output)
  if(NOT result EQUAL 0 OR NOT EXISTS "${WORK_DIR}/demo.svg")
    message(FATAL_ERROR "the installed contour does not run: ${output}")
  endif()
  # A copy of the installation outside the build tree, where nothing of the
  # build can stand in for it, run through PATH as a user types it (argv[0]
  # is then a bare name) from a folder that holds nothing of it.
  string(RANDOM LENGTH 12 tag)
  set(moved "/tmp/contour-install-check-${tag}")
  file(COPY "${WORK_DIR}/prefix/" DESTINATION "${moved}")
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "PATH=${moved}/bin:$ENV{PATH}"
      contour "${SOURCE_DIR}/../models/units/block_inch.3mf" -q -o "${WORK_DIR}/block.svg"
    WORKING_DIRECTORY /
    RESULT_VARIABLE result ERROR_VARIABLE output)
  file(REMOVE_RECURSE "${moved}")
  if(NOT result EQUAL 0 OR NOT EXISTS "${WORK_DIR}/block.svg")
    message(FATAL_ERROR "the installed contour does not load its reader module: ${output}")
  endif()
endif()
