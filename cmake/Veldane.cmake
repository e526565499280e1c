# How the tree becomes targets. A folder is a target: its sources are what lies in it, its CMakeLists.txt
# is one line with what it links.

find_program(VN_CCACHE ccache)
if(VN_CCACHE)
  # Precompiled headers need the sloppiness; the base folder lets clones of the tree share results.
  set(vn_launcher env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${VN_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${vn_launcher})
  set(CMAKE_C_COMPILER_LAUNCHER ${vn_launcher})
endif()

add_library(vn_options INTERFACE)
target_compile_features(vn_options INTERFACE cxx_std_20)
target_include_directories(vn_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_compile_definitions(vn_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH QT_FORCE_ASSERTS)
target_compile_options(vn_options INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Werror -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_link_libraries(vn_options INTERFACE Qt6::Core Threads::Threads)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(vn_options INTERFACE -fpch-preprocess)
endif()
if(VN_SANITIZE OR VN_FUZZ)
  set(vn_sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(VN_FUZZ)
    list(APPEND vn_sanitizers -fsanitize=fuzzer-no-link)
  endif()
  target_compile_options(vn_options INTERFACE ${vn_sanitizers})
  target_link_options(vn_options INTERFACE ${vn_sanitizers})
endif()
if(VN_COVERAGE)
  target_compile_options(vn_options INTERFACE --coverage)
  target_link_options(vn_options INTERFACE --coverage)
endif()

# One precompiled header for all libraries and programs, one more for the tests.
file(WRITE ${CMAKE_BINARY_DIR}/pch.cpp "")
add_library(vn_pch OBJECT ${CMAKE_BINARY_DIR}/pch.cpp)
target_link_libraries(vn_pch PUBLIC vn_options)
target_precompile_headers(vn_pch PRIVATE ${CMAKE_SOURCE_DIR}/cmake/precompiled.h)

# Sets `target` in the caller to vn_<path below src with underscores>.
macro(vn_target_name)
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_SOURCE_DIR}/src OUTPUT_VARIABLE library)
  string(REPLACE / _ target vn_${library})
endmacro()

# vn_library(LINKED...): the library of this folder. A main.cpp beside it is a program's, see vn_program.
function(vn_library)
  vn_target_name()
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h *.def)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  add_library(${target} STATIC ${sources})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${target} PUBLIC vn_options ${ARGN})
  target_precompile_headers(${target} REUSE_FROM vn_pch)
endfunction()

# vn_program(NAME LINKED...): the program whose main.cpp lies in this folder.
function(vn_program name)
  add_executable(${name} main.cpp)
  set_property(GLOBAL APPEND PROPERTY VN_PROGRAMS ${name})
  target_link_libraries(${name} PRIVATE vn_options ${ARGN})
  target_compile_definitions(${name} PRIVATE VN_VERSION="${PROJECT_VERSION}")
  target_precompile_headers(${name} REUSE_FROM vn_pch)
endfunction()

function(vn_add_libraries)
  file(STRINGS ${CMAKE_SOURCE_DIR}/src/layers.txt rows REGEX "^[0-9]")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS src/layers.txt)
  foreach(row IN LISTS rows)
    string(REGEX MATCH "^[0-9]+ +([^ ]+)" ignored "${row}")
    foreach(folder IN ITEMS ${CMAKE_MATCH_1} ${CMAKE_MATCH_1}/ui)
      if(EXISTS ${CMAKE_SOURCE_DIR}/src/${folder}/CMakeLists.txt)
        add_subdirectory(src/${folder})
      endif()
    endforeach()
  endforeach()
endfunction()

function(vn_add_programs)
  file(GLOB folders CONFIGURE_DEPENDS src/apps/*/CMakeLists.txt)
  foreach(file IN LISTS folders)
    cmake_path(GET file PARENT_PATH folder)
    add_subdirectory(${folder})
  endforeach()
endfunction()

# The build tree is laid out as an installation: what lies in share/ appears beside bin/ and in it.
function(vn_link_installation)
  file(GLOB entries CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}/share share/* share/bin/*)
  list(REMOVE_ITEM entries bin)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  foreach(entry IN LISTS entries)
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/share/${entry} ${CMAKE_BINARY_DIR}/${entry} SYMBOLIC)
  endforeach()
endfunction()

# tests/<library>/*_test.cpp become one binary, <library>_test, compiled as one object: the headers are
# what costs. It links that library, tests/support and what tests/<library>/CMakeLists.txt may add with
# target_link_libraries, target_compile_definitions or fixtures for ${test}.
function(vn_add_tests)
  find_package(GTest REQUIRED)
  file(WRITE ${CMAKE_BINARY_DIR}/test_pch.cpp "")
  add_library(vn_test_pch OBJECT ${CMAKE_BINARY_DIR}/test_pch.cpp)
  target_link_libraries(vn_test_pch PUBLIC vn_options GTest::gtest GTest::gmock)
  target_precompile_headers(vn_test_pch PRIVATE ${CMAKE_SOURCE_DIR}/cmake/precompiled.h
                            ${CMAKE_SOURCE_DIR}/cmake/precompiled_test.h)
  file(GLOB support CONFIGURE_DEPENDS tests/support/*.cpp tests/support/*.h)
  add_library(vn_test_support STATIC ${support})
  target_include_directories(vn_test_support PUBLIC ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(vn_test_support PUBLIC vn_base GTest::gtest GTest::gmock)
  target_compile_definitions(vn_test_support PRIVATE VN_BIN="${CMAKE_BINARY_DIR}/bin")
  target_precompile_headers(vn_test_support REUSE_FROM vn_test_pch)

  file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}/tests tests/*_test.cpp)
  set(folders "")
  foreach(source IN LISTS sources)
    cmake_path(GET source PARENT_PATH folder)
    list(APPEND folders ${folder})
  endforeach()
  list(REMOVE_DUPLICATES folders)
  foreach(folder IN LISTS folders)
    string(REPLACE / _ name ${folder})
    set(test ${name}_test)
    file(GLOB files ${CMAKE_SOURCE_DIR}/tests/${folder}/*.cpp)
    add_executable(${test} ${files})
    set_target_properties(${test} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
                          UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
    target_link_libraries(${test} PRIVATE vn_test_support GTest::gtest_main)
    if(TARGET vn_${name})
      target_link_libraries(${test} PRIVATE vn_${name})
    endif()
    target_compile_definitions(${test} PRIVATE VN_TEST_DATA="${CMAKE_SOURCE_DIR}/tests/data" VN_BIN="${CMAKE_BINARY_DIR}/bin")
    target_precompile_headers(${test} REUSE_FROM vn_test_pch)
    add_test(NAME ${folder} COMMAND ${test} --gtest_brief=1)
    set_tests_properties(${folder} PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen" TIMEOUT 600)
    include(${CMAKE_SOURCE_DIR}/tests/${folder}/CMakeLists.txt OPTIONAL)
  endforeach()
endfunction()

# vn_fuzz(NAME LINKED...): fuzz/NAME_fuzz.cpp over the corpus in fuzz/corpus/NAME.
function(vn_fuzz name)
  add_executable(${name}_fuzz ${name}_fuzz.cpp)
  set_target_properties(${name}_fuzz PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  target_link_libraries(${name}_fuzz PRIVATE ${ARGN})
  target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
  target_precompile_headers(${name}_fuzz REUSE_FROM vn_pch)
  if(NOT TARGET fuzz_targets)
    add_custom_target(fuzz_targets) # what tools/fuzz.sh builds
  endif()
  add_dependencies(fuzz_targets ${name}_fuzz)
endfunction()

# vn_bench(NAME LINKED...): bench/NAME_bench.cpp on Google Benchmark.
function(vn_bench name)
  add_executable(${name}_bench ${name}_bench.cpp)
  set_target_properties(${name}_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
  target_link_libraries(${name}_bench PRIVATE benchmark::benchmark_main ${ARGN})
  target_precompile_headers(${name}_bench REUSE_FROM vn_pch)
endfunction()
