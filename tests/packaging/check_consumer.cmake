# Builds and runs a consumer of the library: MODE is find_package (against an installed copy of
# BUILD_DIR) or add_subdirectory (against the source tree). WITH_X11 and WITH_WAYLAND add a
# consumer of each backend; an installed copy also compiles each of its headers on its own.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(common -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    -DCONSUMER_WITH_X11=${WITH_X11} -DCONSUMER_WITH_WAYLAND=${WITH_WAYLAND})

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
  set(include_dir ${WORK_DIR}/prefix/include/editor_clipboard)
  file(GLOB_RECURSE headers RELATIVE ${include_dir} ${include_dir}/*)
  if(NOT "clipboard/clipboard_impl.hpp" IN_LIST headers)
    message(FATAL_ERROR "clipboard/clipboard_impl.hpp was not installed: ${headers}")
  endif()
  # One argument through execute_process, which would split a list.
  string(REPLACE ";" "," header_list "${headers}")
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/consumer -B ${WORK_DIR}/build ${common}
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix "-DCONSUMER_HEADERS=${header_list}")
else()
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/subdirectory -B ${WORK_DIR}/build ${common}
      -DEDITOR_CLIPBOARD_SOURCE_DIR=${SOURCE_DIR})
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
foreach(backend x11 wayland)
  string(TOUPPER ${backend} upper)
  if(WITH_${upper})
    run(${WORK_DIR}/build/consumer_${backend})
  endif()
endforeach()
