# The pixel kernels: ahead-of-time pipelines, each compiled for SSE4.1 and for
# AVX behind an entry that chooses once per process.
#
# Generators run on the machine that builds. For another target they come from a
# build for this machine: KORIN_HOST_GENERATORS names its build directory.
set(KORIN_HOST_GENERATORS "" CACHE PATH "Build directory whose generators a cross build runs")

if(WIN32)
  set(korin_halide_system windows)
else()
  set(korin_halide_system linux)
endif()
math(EXPR korin_halide_bits "8 * ${CMAKE_SIZEOF_VOID_P}")
set(KORIN_HALIDE_PREFIX "x86-${korin_halide_bits}-${korin_halide_system}" CACHE STRING
  "Target the kernels are generated for: x86-64-linux, x86-32-linux, x86-64-windows, x86-32-windows")

# Pipelines depend on no compiler flag: a build with sanitizers can take them from
# another build of the same checkout for the same target.
set(KORIN_PREBUILT_KERNELS "" CACHE PATH
  "Build directory for the same target whose finished pipelines are used; empty: make them")

if(KORIN_PREBUILT_KERNELS)
  find_package(HalideHelpers 14 REQUIRED)
elseif(CMAKE_CROSSCOMPILING AND KORIN_HOST_GENERATORS)
  # Halide's own files of this machine, as the build that made the generators found them.
  load_cache(${KORIN_HOST_GENERATORS} READ_WITH_PREFIX korin_host_ HalideHelpers_DIR)
  find_package(HalideHelpers 14 REQUIRED PATHS ${korin_host_HalideHelpers_DIR}
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  include(${KORIN_HOST_GENERATORS}/cmake/KorinImage-halide_generators-config.cmake)
else()
  find_package(Halide 14 REQUIRED)
endif()

# korin_kernel_family(FAMILY SOURCE): the generator of one family.
function(korin_kernel_family family)
  if(NOT KORIN_PREBUILT_KERNELS AND NOT TARGET KorinImage::halide_generators::${family}.generator)
    add_halide_generator(${family}.generator SOURCES ${ARGN})
    # A generator is a tool: its speed never matters, the time to build it does.
    target_compile_options(${family}.generator PRIVATE -O0)
    set_target_properties(${family}.generator PROPERTIES CXX_STANDARD 17)
  endif()
endfunction()

# korin_kernel(NAME FAMILY [parameter=value...]): one pipeline, three compiled
# forms, added to the list KORIN_KERNELS. All pipelines share the first one's
# runtime.
function(korin_kernel name family)
  get_property(runtime GLOBAL PROPERTY KORIN_KERNEL_RUNTIME)
  if(runtime)
    set(runtime USE_RUNTIME ${runtime})
  else()
    set_property(GLOBAL PROPERTY KORIN_KERNEL_RUNTIME ${name}.runtime)
  endif()
  set_property(GLOBAL APPEND PROPERTY KORIN_KERNELS ${name})
  if(KORIN_PREBUILT_KERNELS)
    set(made ${KORIN_PREBUILT_KERNELS}/src/kernels)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${made}/lib${name}.a)
    if(NOT runtime)
      add_library(${name}.runtime INTERFACE)
      target_link_libraries(${name}.runtime INTERFACE ${made}/lib${name}.runtime.a ${CMAKE_DL_LIBS})
    endif()
    return()
  endif()
  string(REGEX REPLACE "^histogram_inverse$" "histogram" generator ${family})
  add_halide_library(${name} FROM ${generator}.generator GENERATOR ${generator}
    TARGETS ${KORIN_HALIDE_PREFIX}-avx-sse41 ${KORIN_HALIDE_PREFIX}-sse41
    ${runtime} PARAMS ${ARGN})
endfunction()

# korin_kernel_catalogue(): every pipeline, as operations x element types.
function(korin_kernel_catalogue)
  set(integers uint8 int16 uint16 int32 uint32)
  set(elements ${integers} float double)
  # What the generators call the element types.
  set(halide_float float32)
  set(halide_double float64)
  foreach(type IN LISTS integers)
    set(halide_${type} ${type})
  endforeach()

  foreach(family average getminmax getminmaxavr getdev histogram histogram_inverse fill)
    foreach(type IN LISTS elements)
      set(parameters element=${halide_${type}})
      if(family STREQUAL histogram_inverse)
        list(APPEND parameters inverse=true)
      endif()
      korin_kernel(${family}_${type} ${family} ${parameters})
    endforeach()
  endforeach()
  korin_kernel(copy_uint8 copy)
  korin_kernel(paste_float paste)
  foreach(family changebits_normalize_mapping changebits_shift_clamp)
    foreach(from IN LISTS elements)
      foreach(to IN LISTS integers)
        korin_kernel(${family}_${from}_to_${to} ${family}
          from=${halide_${from}} to=${halide_${to}})
      endforeach()
    endforeach()
  endforeach()
  foreach(from IN LISTS elements)
    foreach(to float double)
      if(to STREQUAL float AND from STREQUAL float OR to STREQUAL double AND from STREQUAL double)
        continue()
      endif()
      korin_kernel(changebits_static_cast_${from}_to_${to} changebits_static_cast
        from=${halide_${from}} to=${halide_${to}})
    endforeach()
  endforeach()

  get_property(kernels GLOBAL PROPERTY KORIN_KERNELS)
  list(LENGTH kernels count)
  if(NOT count EQUAL 133)
    message(FATAL_ERROR "The kernel catalogue has 133 pipelines, this build has ${count}")
  endif()

  # korin_pipelines: all of them and their runtime, for the room that calls them.
  list(TRANSFORM kernels REPLACE "(.+)" "#include <\\1.h>\n" OUTPUT_VARIABLE includes)
  string(JOIN "" includes ${includes})
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/kernel_headers.h
    CONTENT "#pragma once\n\n${includes}" @ONLY)
  add_library(korin_pipelines INTERFACE)
  target_link_libraries(korin_pipelines INTERFACE ${kernels})
  if(KORIN_PREBUILT_KERNELS)
    get_property(runtime GLOBAL PROPERTY KORIN_KERNEL_RUNTIME)
    target_link_libraries(korin_pipelines INTERFACE ${runtime} Halide::Runtime)
    target_include_directories(korin_pipelines SYSTEM INTERFACE
      ${KORIN_PREBUILT_KERNELS}/src/kernels)
  endif()
  target_include_directories(korin_pipelines SYSTEM INTERFACE ${CMAKE_CURRENT_BINARY_DIR})
endfunction()
