# Settings shared by all components, and the functions that declare them.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

find_program(PEL_CCACHE ccache)
if(PEL_CCACHE)
  # Paths below the source tree count as relative, so that another clone finds what this one compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${PEL_CCACHE})
endif()
find_program(PEL_LLD ld.lld)
if(PEL_LLD)
  add_link_options(-fuse-ld=lld)
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(absl REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)
find_package(Protobuf REQUIRED)
find_package(OpenSSL REQUIRED)
pkg_check_modules(LIBUV REQUIRED IMPORTED_TARGET libuv)
pkg_check_modules(LMDB REQUIRED IMPORTED_TARGET lmdb)
pkg_check_modules(NGHTTP2 REQUIRED IMPORTED_TARGET libnghttp2)
pkg_check_modules(MNL REQUIRED IMPORTED_TARGET libmnl)
find_program(FLATC flatc REQUIRED)

option(PEL_ASAN "AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(PEL_TSAN "ThreadSanitizer" OFF)
option(PEL_FUZZ "libFuzzer targets (needs clang++)" OFF)
if(PEL_ASAN)
  # g++ 12 takes instrumented small vectors for uninitialised.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    -Wno-maybe-uninitialized)
  add_link_options(-fsanitize=address,undefined)
endif()
if(PEL_TSAN)
  # A fence is invisible to the sanitizer and warned about; what stands between fences here are atomics.
  # Without the macro protobuf's headers would add a member to its maps that its library does not know.
  add_compile_options(-fsanitize=thread -Wno-tsan -U__SANITIZE_THREAD__)
  add_link_options(-fsanitize=thread)
endif()
if(PEL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address)
  add_link_options(-fsanitize=address)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12.2 takes what a destructor stores while an exception unwinds for dead: counted references leak
  # (Ref.WhatAnExceptionUnwindsIsGivenBack).
  add_compile_options(-fno-tree-dse)
endif()

# Nobody replaces a function of the shared libraries: those of one file may be called directly, and inlined.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fno-semantic-interposition -fno-plt)
endif()

set(PEL_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Werror)
set(PEL_GENERATED ${CMAKE_BINARY_DIR}/generated)

# Own headers are included by their full path from the root, generated ones by theirs from generated/.
include_directories(${CMAKE_SOURCE_DIR})
include_directories(SYSTEM ${PEL_GENERATED})
add_compile_definitions(PEL_REVISION="${PROJECT_VERSION}")

# pel_library(NAME SOURCES a.cpp ... [SCHEMAS x.fbs ...] [DEPS targets ...]): one component.
function(pel_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;SCHEMAS;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${PEL_WARNINGS})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  if(ARG_SCHEMAS)
    set(outputs)
    foreach(schema ${ARG_SCHEMAS})
      file(RELATIVE_PATH relative ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/${schema})
      get_filename_component(dir ${relative} DIRECTORY)
      get_filename_component(stem ${relative} NAME_WE)
      set(out ${PEL_GENERATED}/${dir}/${stem}_generated.h)
      add_custom_command(
        OUTPUT ${out}
        COMMAND ${FLATC} --cpp --scoped-enums -o ${PEL_GENERATED}/${dir} ${CMAKE_CURRENT_SOURCE_DIR}/${schema}
        DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${schema})
      list(APPEND outputs ${out})
    endforeach()
    add_custom_target(${name}Schemas DEPENDS ${outputs})
    add_dependencies(${name} ${name}Schemas)
  endif()
endfunction()

# Binaries of a kind, buildable by one name: threads-tests, scale-tests, fuzzers.
function(pel_group group name)
  if(NOT TARGET ${group})
    add_custom_target(${group})
  endif()
  add_dependencies(${group} ${name})
endfunction()

# pel_test(NAME SOURCES a_test.cpp ... DEPS targets ... [LABELS labels ...] [SEARCHES]): one test binary, one ctest entry.
# Labels with a meaning: `threads` also runs under the thread sanitizer (not what uses stock gRPC, which is not
# instrumented); `scale` runs in a release build only, at TestSupport::scale() entries; `system` runs alone.
# Test code is not optimized under the address sanitizer, which halves the time to compile it, unless the test SEARCHES:
# spends its time in its own code.
function(pel_test name)
  cmake_parse_arguments(ARG "SEARCHES" "" "SOURCES;DEPS;LABELS" ${ARGN})
  set(timeout 1200)  # for the slowest machine: a test that fails by time fails for nothing
  if("scale" IN_LIST ARG_LABELS)
    if(PEL_ASAN OR PEL_TSAN OR PEL_FUZZ)
      return()
    endif()
    set(timeout 3000)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${PEL_WARNINGS})
  if(PEL_ASAN AND NOT ARG_SEARCHES)
    target_compile_options(${name} PRIVATE -O0)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} TestSupport GTest::gtest GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name} --gtest_output=xml:${CMAKE_BINARY_DIR}/results/${name}.xml)
  set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout} LABELS "${ARG_LABELS}")
  if("system" IN_LIST ARG_LABELS OR "scale" IN_LIST ARG_LABELS)
    set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
  endif()
  foreach(label threads scale)
    if(label IN_LIST ARG_LABELS)
      pel_group(${label}-tests ${name})
    endif()
  endforeach()
endfunction()

# pel_bench(NAME SOURCES ... DEPS ...): a Google Benchmark binary; CI smoke-runs it.
function(pel_bench name)
  if(PEL_ASAN OR PEL_TSAN)
    return()  # figures of an instrumented build mean nothing
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${PEL_WARNINGS})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} benchmark::benchmark benchmark::benchmark_main)
  set_property(GLOBAL APPEND PROPERTY PEL_BENCHES ${name})
endfunction()

# pel_fuzz(NAME SOURCES x_fuzz.cpp DEPS targets ...): one LLVMFuzzerTestOneInput. With PEL_FUZZ a
# libFuzzer binary, which tools/fuzz runs; else a test that replays fuzz/corpus beside the component's
# CMakeLists.txt.
function(pel_fuzz name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${PEL_WARNINGS})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS})
  if(PEL_FUZZ)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    pel_group(fuzzers ${name})
    set_property(GLOBAL APPEND_STRING PROPERTY PEL_FUZZERS "${name} ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus\n")
  else()
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/test/support/FuzzReplay.cpp)
    add_test(NAME ${name} COMMAND ${name} ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus)
    set_tests_properties(${name} PROPERTIES TIMEOUT 1200 LABELS fuzz)
  endif()
endfunction()
