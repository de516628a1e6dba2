# Build settings shared by every room of the house: one place for the language
# level, the float rules, warnings and sanitizers.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

find_package(Threads REQUIRED)

# korin_flags: what every target of the project compiles with.
add_library(korin_flags INTERFACE)
target_compile_features(korin_flags INTERFACE cxx_std_20)
target_include_directories(korin_flags INTERFACE
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
# Conversions promise the same double operations in the same order on every
# machine: no fused multiply-add, and SSE2 arithmetic on 32-bit targets.
target_compile_options(korin_flags INTERFACE -ffp-contract=off)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(korin_flags INTERFACE -msse2 -mfpmath=sse)
  if(NOT WIN32)
    # Files beyond 2 GiB and times beyond 2038.
    target_compile_definitions(korin_flags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  endif()
endif()
target_compile_options(korin_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wno-missing-field-initializers)
# Compiled together, the names of one source may hide those of another.
if(NOT CMAKE_UNITY_BUILD)
  target_compile_options(korin_flags INTERFACE -Wshadow)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(korin_flags INTERFACE -Wshadow=local)
endif()
if(KORINIMAGE_WERROR)
  target_compile_options(korin_flags INTERFACE -Werror)
endif()
if(KORINIMAGE_POISON)
  target_compile_definitions(korin_flags INTERFACE KORINIMAGE_POISON=1)
endif()
if(KORINIMAGE_SANITIZE)
  target_compile_options(korin_flags INTERFACE -fsanitize=${KORINIMAGE_SANITIZE}
    -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(korin_flags INTERFACE -fsanitize=${KORINIMAGE_SANITIZE})
endif()

# korin_room(NAME SOURCES... [USES room...] [LINKS lib...]): one folder of src/
# as an object library. The shared library and the tests link the same objects.
function(korin_room name)
  cmake_parse_arguments(ARG "" "" "USES;LINKS" ${ARGN})
  add_library(korin_${name} OBJECT ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(korin_${name} PUBLIC korin_flags Threads::Threads ${ARG_LINKS})
  target_compile_definitions(korin_${name} PRIVATE KORINIMAGE_BUILDING=1)
  set(rooms ${name})
  foreach(used IN LISTS ARG_USES)
    list(APPEND rooms ${KORIN_ROOMS_${used}})
  endforeach()
  list(REMOVE_DUPLICATES rooms)
  # Every room below this one, itself included: what a test of it must link.
  set(KORIN_ROOMS_${name} "${rooms}" CACHE INTERNAL "")
endfunction()

# korin_link_rooms(TARGET room...): links the objects of the rooms and of all
# rooms below them.
function(korin_link_rooms target)
  set(rooms)
  foreach(name IN LISTS ARGN)
    list(APPEND rooms ${KORIN_ROOMS_${name}})
  endforeach()
  list(REMOVE_DUPLICATES rooms)
  foreach(name IN LISTS rooms)
    target_link_libraries(${target} PRIVATE korin_${name})
  endforeach()
  # What links the objects imports nothing from the library's DLL.
  target_compile_definitions(${target} PRIVATE KORINIMAGE_STATIC=1)
endfunction()

# korin_export_public(LIBRARY): exports what the code marks and nothing of the standard
# library or of archives linked in, such as the kernels and their runtime.
function(korin_export_public library)
  if(WIN32)
    set_target_properties(${library} PROPERTIES PREFIX "")
  elseif(NOT APPLE)
    set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    target_link_options(${library} PRIVATE -Wl,--exclude-libs,ALL -Wl,--version-script=${exports})
    set_target_properties(${library} PROPERTIES LINK_DEPENDS ${exports})
    if(NOT KORINIMAGE_SANITIZE)
      target_link_options(${library} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
endfunction()
