# Installs into a fresh prefix, builds the consumer once through the CMake package
# and once through pkg-config, and runs both.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE text ERROR_VARIABLE text)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${text}")
  endif()
  set(output "${text}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${CMAKE_COMMAND} -E env KORINIMAGE_CONFIG=${WORK_DIR}/settings.ini ${WORK_DIR}/build/consumer)
if(NOT output MATCHES "average 7")
  message(FATAL_ERROR "the consumer printed: ${output}")
endif()

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc ${prefix}/*/korinimage.pc)
  get_filename_component(pc_dir ${pc} DIRECTORY)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
    ${PKG_CONFIG} --cflags --libs korinimage
    OUTPUT_VARIABLE flags RESULT_VARIABLE code OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "pkg-config does not find korinimage")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(${CXX_COMPILER} -std=c++20 ${SOURCE_DIR}/main.cpp -o ${WORK_DIR}/by_pkg_config ${flags})
  get_filename_component(lib_dir ${pc_dir} DIRECTORY)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dir}
    KORINIMAGE_CONFIG=${WORK_DIR}/settings.ini ${WORK_DIR}/by_pkg_config)
  if(NOT output MATCHES "average 7")
    message(FATAL_ERROR "the consumer built with pkg-config printed: ${output}")
  endif()
else()
  message(STATUS "pkg-config is not installed: its half of the test is left out")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
