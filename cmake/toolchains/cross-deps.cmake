# Shared by the toolchain files: where scripts/cross-deps.sh put what the target
# needs (test framework, headers, file libraries). Nothing of the host but programs
# is ever found.
set(KORIN_CROSS_DEPS "${CMAKE_CURRENT_LIST_DIR}/../../build/deps" CACHE PATH
  "Folder that scripts/cross-deps.sh filled")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KORIN_CROSS_DEPS)
get_filename_component(korin_target_deps "${KORIN_CROSS_DEPS}/${KORIN_CROSS_TARGET}" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${korin_target_deps} ${KORIN_CROSS_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's run-time DLLs beside the programs: each finds those of its width.
file(GLOB korin_runtime_dlls ${korin_target_deps}/bin/*.dll)
if(korin_runtime_dlls AND CMAKE_RUNTIME_OUTPUT_DIRECTORY)
  file(COPY ${korin_runtime_dlls} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endif()
