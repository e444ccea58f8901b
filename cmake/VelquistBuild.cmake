# Shared compile settings and the two helpers every module and test suite use.

include(GNUInstallDirs)

# The project's own compile settings: modules, tests, tools and benchmarks link them
# privately, so they never reach a project that uses the library.

add_library(velquist_settings INTERFACE)
target_compile_options(velquist_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
  # Constructor parameters named after the fields they set are the idiom here.
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow> -Woverloaded-virtual
  -Wimplicit-fallthrough -Wmissing-declarations
  # Designated initialisers leave defaulted fields out on purpose.
  -Wno-missing-field-initializers
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  # Price arithmetic converts doubles step by step; never fuse or reorder them.
  -ffp-contract=off -fno-fast-math)
if(VELQUIST_WERROR)
  target_compile_options(velquist_settings INTERFACE -Werror)
endif()
if(VELQUIST_SANITIZE)
  target_compile_options(velquist_settings INTERFACE
    -fsanitize=${VELQUIST_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(velquist_settings INTERFACE -fsanitize=${VELQUIST_SANITIZE})
endif()

# Fuzzing: the library is built with libFuzzer's coverage instrumentation, so the fuzzers
# are guided by its branches too (the programs link libFuzzer itself, fuzz/CMakeLists.txt).
if(VELQUIST_FUZZ)
  target_compile_options(velquist_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# velquist_module(<name> [DEPENDS <targets>...] [PRIVATE <targets>...])
# A library velquist_<name> (aliases velquist::<name> and Velquist::<name>, installed as
# Velquist::<name>) from src/<name>/, with the public headers under include/velquist/<name>/.
# Static unless BUILD_SHARED_LIBS is on; a shared one has an SONAME from the project's major
# version and exports only what its public headers mark (see include/velquist/export.h).
# The warning, -Werror and sanitizer flags stay on the module's own compilation: they are
# never part of what a user of the library inherits.
function(velquist_module name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;PRIVATE" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/${name}/*.cpp)
  set(includes $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(NOT sources)  # header-only so far
    add_library(velquist_${name} INTERFACE)
    target_include_directories(velquist_${name} INTERFACE ${includes})
    target_link_libraries(velquist_${name} INTERFACE ${ARG_DEPENDS} ${ARG_PRIVATE})
    target_compile_features(velquist_${name} INTERFACE cxx_std_20)
  else()
    add_library(velquist_${name} ${sources})
    target_include_directories(velquist_${name} PUBLIC ${includes})
    target_link_libraries(velquist_${name}
      PUBLIC ${ARG_DEPENDS}
      PRIVATE $<BUILD_INTERFACE:velquist_settings> ${ARG_PRIVATE})
    target_compile_features(velquist_${name} PUBLIC cxx_std_20)
    set_target_properties(velquist_${name} PROPERTIES
      CXX_VISIBILITY_PRESET hidden
      VERSION ${PROJECT_VERSION}
      SOVERSION ${PROJECT_VERSION_MAJOR}
      # Installed next to each other: each finds the others where it lies.
      INSTALL_RPATH "$ORIGIN")
    if(BUILD_SHARED_LIBS AND NOT VELQUIST_SANITIZE)
      # A symbol the library needs from another but that one does not export fails here,
      # not in the first program that links both.
      target_link_options(velquist_${name} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
  set_target_properties(velquist_${name} PROPERTIES EXPORT_NAME ${name})
  add_library(velquist::${name} ALIAS velquist_${name})
  add_library(Velquist::${name} ALIAS velquist_${name})
  set_property(GLOBAL APPEND PROPERTY VELQUIST_MODULES velquist_${name})
endfunction()

# velquist_test_suite(<module> [DEPENDS <targets>...])
# One GoogleTest program <module>_tests from tests/<module>/*_test.cpp, registered with CTest.
# Every suite also gets tests/common/test_environment.cpp, its main: the test context for
# dependencies, test failures reported as GoogleTest failures, thread-safe death tests.
function(velquist_test_suite name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/tests/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name}_tests ${sources} ${PROJECT_SOURCE_DIR}/tests/common/test_environment.cpp)
  target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name}_tests PRIVATE ${ARG_DEPENDS} velquist::support velquist_settings GTest::gtest GTest::gmock)
  target_compile_definitions(${name}_tests PRIVATE
    VELQUIST_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/${name}/data"
    VELQUIST_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  # A test that hangs fails at its timeout; the waits inside the tests give up long before.
  gtest_discover_tests(${name}_tests DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${name} TIMEOUT 120)
endfunction()
