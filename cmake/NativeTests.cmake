# Native build: the portable logic against the recording fakes.
find_package(GTest REQUIRED)
include(GoogleTest)

add_library(kel_fakes STATIC
  tests/fakes/fake_platform.cpp
  tests/fakes/fake_deployment.cpp
  tests/fakes/fake_desktop.cpp
  tests/fakes/fake_files.cpp
  tests/fakes/fake_registry.cpp
  tests/fakes/fake_shell_objects.cpp
  tests/fakes/fake_system.cpp
  tests/fakes/fake_threads.cpp)
target_include_directories(kel_fakes PUBLIC ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tests/support ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(kel_fakes PUBLIC kelbrook_core)

file(GLOB_RECURSE KEL_UNIT_TEST_SOURCES CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/tests/frame/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/launch/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/catalogue/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/package_discovery/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/manifest/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/platform/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/text/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/interface_id/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/fault_injection/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/soak/*.cpp
  ${PROJECT_SOURCE_DIR}/tests/fakes/*_test.cpp)
add_executable(kel_unit_tests ${KEL_UNIT_TEST_SOURCES} tests/support/alloc_counter.cpp tests/support/replaced_new_delete.cpp)
target_link_libraries(kel_unit_tests PRIVATE kel_fakes GTest::gtest_main GTest::gmock)
target_compile_definitions(kel_unit_tests PRIVATE KEL_TEST_MANIFESTS_DIR="${PROJECT_SOURCE_DIR}/tests/manifest/manifests")
gtest_discover_tests(kel_unit_tests DISCOVERY_TIMEOUT 60 PROPERTIES LABELS unit)

option(KEL_FUZZ "Build the libFuzzer targets (clang)" OFF)
if(KEL_FUZZ)
  add_subdirectory(tests/fuzz)
endif()

option(KEL_BENCH "Build the benchmarks against libxml2, pugixml and iconv (Google Benchmark)" OFF)
if(KEL_BENCH)
  add_subdirectory(bench)
endif()
