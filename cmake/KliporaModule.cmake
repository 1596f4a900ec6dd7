# klipora_module(NAME DEPS <libs...>)
#
# Builds src/<name> into the static library klipora_<name> from every .cc in the
# folder that is not a test, gives it src/ as include root, and builds its tests:
#   *_test.cc              -> klipora_<name>_tests              (label: unit)
#   *_integration_test.cc  -> klipora_<name>_integration_tests  (label: integration)
# Tests link klipora_platform_testing and, for integration, klipora_platform_linux.
# Every test file in the folder is picked up, so a test can never go unbuilt.
set(KLIPORA_SRC_ROOT ${CMAKE_SOURCE_DIR}/src)

function(klipora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(KLIPORA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

function(klipora_module name)
  cmake_parse_arguments(ARG "" "" "DEPS;TEST_DEPS;FUZZ_SEEDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  file(GLOB unit_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cc)
  file(GLOB integration_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_integration_test.cc)
  file(GLOB fuzzers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_fuzzer.cc)
  list(REMOVE_ITEM sources ${unit_tests} ${fuzzers})
  list(REMOVE_ITEM unit_tests ${integration_tests})
  set(lib klipora_${name})
  if(NOT sources)
    # A module that has no code yet still exists, so others can depend on it.
    add_library(${lib} INTERFACE)
    target_include_directories(${lib} INTERFACE ${KLIPORA_SRC_ROOT})
    target_link_libraries(${lib} INTERFACE ${ARG_DEPS})
    return()
  endif()
  add_library(${lib} STATIC ${sources})
  target_include_directories(${lib} PUBLIC ${KLIPORA_SRC_ROOT})
  target_link_libraries(${lib} PUBLIC ${ARG_DEPS})
  klipora_warnings(${lib})
  if(unit_tests)
    add_executable(${lib}_tests ${unit_tests})
    target_link_libraries(${lib}_tests PRIVATE ${lib} klipora_platform_testing ${ARG_TEST_DEPS}
                          GTest::gmock_main)
    klipora_warnings(${lib}_tests)
    gtest_discover_tests(${lib}_tests PROPERTIES LABELS unit DISCOVERY_TIMEOUT 60)
  endif()
  if(integration_tests)
    add_executable(${lib}_integration_tests ${integration_tests})
    target_link_libraries(${lib}_integration_tests PRIVATE ${lib} klipora_platform_testing
                          klipora_platform_linux ${ARG_TEST_DEPS} GTest::gmock_main)
    target_compile_definitions(${lib}_integration_tests PRIVATE
                               KLIPORA_BINARY="$<TARGET_FILE:klipora>"
                               KLIPORA_TEST_DATA="${CMAKE_SOURCE_DIR}/tests/data")
    klipora_warnings(${lib}_integration_tests)
    gtest_discover_tests(${lib}_integration_tests PROPERTIES LABELS integration
                         DISCOVERY_TIMEOUT 60)
  endif()
  # Fuzz targets build as plain replay programs (each takes files and folders
  # as inputs) so that they cannot rot: ctest feeds each its seeds from
  # tests/data/fuzz/<target>/ and a fixed series of generated inputs. With
  # KLIPORA_FUZZ they link libFuzzer instead (make fuzz).
  foreach(fuzzer ${fuzzers})
    get_filename_component(fname ${fuzzer} NAME_WE)
    if(KLIPORA_FUZZ)
      add_executable(${fname} ${fuzzer})
      target_link_options(${fname} PRIVATE -fsanitize=fuzzer)
    else()
      add_executable(${fname} ${fuzzer} ${CMAKE_SOURCE_DIR}/tests/fuzz_replay_main.cc)
    endif()
    target_link_libraries(${fname} PRIVATE ${lib} klipora_platform_testing)
    klipora_warnings(${fname})
    add_dependencies(klipora_fuzzers ${fname})
    set(seeds)
    foreach(folder tests/data/fuzz/${fname} ${ARG_FUZZ_SEEDS})
      if(EXISTS ${CMAKE_SOURCE_DIR}/${folder})
        list(APPEND seeds ${CMAKE_SOURCE_DIR}/${folder})
      endif()
    endforeach()
    add_test(NAME ${fname} COMMAND ${fname} ${seeds})
    # make fuzz starts each target from the same seeds.
    string(REPLACE ";" " " seed_list "${seeds}")
    file(APPEND ${CMAKE_BINARY_DIR}/fuzz_targets.txt "${CMAKE_CURRENT_BINARY_DIR}/${fname} ${seed_list}\n")
    set_tests_properties(${fname} PROPERTIES LABELS fuzz TIMEOUT 300)
  endforeach()
endfunction()

# klipora_benchmark(NAME SOURCES <files...> DEPS <libs...>)
# A Google Benchmark (or plain) program under bench/, built as build/bench/<name>.
function(klipora_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(bench_${name} ${ARG_SOURCES})
  set_target_properties(bench_${name} PROPERTIES OUTPUT_NAME ${name}
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
  target_include_directories(bench_${name} PRIVATE ${KLIPORA_SRC_ROOT})
  target_link_libraries(bench_${name} PRIVATE ${ARG_DEPS} klipora_platform_linux
                        benchmark::benchmark)
  klipora_warnings(bench_${name})
  add_dependencies(benchmarks bench_${name})
endfunction()
