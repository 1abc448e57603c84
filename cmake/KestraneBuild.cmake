# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0

# How every target of the project is built, and the helpers that declare them.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Without this, ccache declines whatever uses a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
    CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

# Flags of all our own code. Contraction off: a fused multiply-add rounds once where two operations
# round twice, and the answers must be the same on every machine. Nobody reads errno or the
# floating-point exception flags; giving them up changes no value and lets loops be vectorised.
add_library(kestrane_flags INTERFACE)
target_include_directories(kestrane_flags INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:include/kestrane>)
target_compile_features(kestrane_flags INTERFACE cxx_std_20)
target_compile_options(kestrane_flags INTERFACE $<BUILD_INTERFACE:-ffp-contract=off>
  $<BUILD_INTERFACE:-fno-math-errno> $<BUILD_INTERFACE:-fno-trapping-math>)
add_library(kestrane_warnings INTERFACE)
target_compile_options(kestrane_warnings INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
  -Woverloaded-virtual -Wno-missing-field-initializers)
if(KESTRANE_WERROR)
  target_compile_options(kestrane_warnings INTERFACE -Werror)
endif()
if(KESTRANE_SANITIZE)
  add_compile_options(-fsanitize=${KESTRANE_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KESTRANE_SANITIZE})
endif()

# kestrane_floor(NAME): the sources of core/NAME as an object library kestrane_NAME.
function(kestrane_floor name)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/core/${name}/*.cpp
    ${PROJECT_SOURCE_DIR}/core/${name}/*.h)
  if(NOT sources)
    return()
  endif()
  add_library(kestrane_${name} OBJECT ${sources})
  set_target_properties(kestrane_${name} PROPERTIES LINKER_LANGUAGE CXX
    POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(kestrane_${name}
    PUBLIC kestrane_flags TBB::tbb nlohmann_json::nlohmann_json Threads::Threads
    PRIVATE kestrane_warnings)
endfunction()

# kestrane_core: all floors as one static library, the only one that others link.
function(kestrane_core_library)
  set(objects)
  foreach(floor IN LISTS KESTRANE_FLOORS)
    if(TARGET kestrane_${floor})
      list(APPEND objects $<TARGET_OBJECTS:kestrane_${floor}>)
    endif()
  endforeach()
  add_library(kestrane_core STATIC ${objects})
  set_target_properties(kestrane_core PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(kestrane_core
    PUBLIC kestrane_flags TBB::tbb nlohmann_json::nlohmann_json Threads::Threads)
endfunction()
