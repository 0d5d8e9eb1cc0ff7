# Builds and runs a consumer of the library: MODE is find_package (against an installed copy of
# BUILD_DIR) or add_subdirectory (against the source tree). WITH_X11 adds a consumer of the X11
# backend.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(common -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    -DCONSUMER_WITH_X11=${WITH_X11})

if(MODE STREQUAL "find_package")
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
  # The browser page goes where the installed host looks for it.
  if(EXISTS ${WORK_DIR}/prefix/bin/clipboard-host)
    foreach(file index.html app.js host_connection.js preview.js style.css)
      if(NOT EXISTS ${WORK_DIR}/prefix/share/editor-clipboard/web/${file})
        message(FATAL_ERROR "not installed: share/editor-clipboard/web/${file}")
      endif()
    endforeach()
  endif()
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/consumer -B ${WORK_DIR}/build ${common}
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
else()
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/subdirectory -B ${WORK_DIR}/build ${common}
      -DEDITOR_CLIPBOARD_SOURCE_DIR=${SOURCE_DIR})
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
if(WITH_X11)
  run(${WORK_DIR}/build/consumer_x11)
endif()
