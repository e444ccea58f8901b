# Shared compile settings and the two helpers every module and test suite use.

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
# A static library velquist_<name> (alias velquist::<name>) from src/<name>/, with the
# public headers under include/velquist/<name>/.
function(velquist_module name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;PRIVATE" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/${name}/*.cpp)
  if(NOT sources)  # header-only so far
    add_library(velquist_${name} INTERFACE)
    target_include_directories(velquist_${name} INTERFACE ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(velquist_${name} INTERFACE velquist_settings ${ARG_DEPENDS} ${ARG_PRIVATE})
    add_library(velquist::${name} ALIAS velquist_${name})
    return()
  endif()
  add_library(velquist_${name} STATIC ${sources})
  add_library(velquist::${name} ALIAS velquist_${name})
  target_include_directories(velquist_${name} PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(velquist_${name} PUBLIC velquist_settings ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE})
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
  target_link_libraries(${name}_tests PRIVATE ${ARG_DEPENDS} velquist::support GTest::gtest GTest::gmock)
  target_compile_definitions(${name}_tests PRIVATE
    VELQUIST_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/${name}/data"
    VELQUIST_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  # A test that hangs fails at its timeout; the waits inside the tests give up long before.
  gtest_discover_tests(${name}_tests DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${name} TIMEOUT 120)
endfunction()
