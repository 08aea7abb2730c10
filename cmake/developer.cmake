# What holds for our own code only: warnings, sanitizers, and one helper for each kind of program.

add_library(tessel_warnings INTERFACE)
target_compile_options(tessel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -fno-omit-frame-pointer)
if(NOT TESSEL_SANITIZE)
  # GCC guesses wrong, inside libstdc++ too, when sanitizers have changed its view of the code.
  target_compile_options(tessel_warnings INTERFACE -Werror)
endif()
if(TESSEL_SANITIZE)
  target_compile_options(tessel_warnings INTERFACE -fsanitize=${TESSEL_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(tessel_warnings INTERFACE -fsanitize=${TESSEL_SANITIZE})
endif()

find_program(TESSEL_MOLD mold)
if(TESSEL_MOLD AND NOT WIN32)
  target_link_options(tessel_warnings INTERFACE -fuse-ld=mold)
endif()

# For what only drives the library, which does the work: with sanitizers it isn't optimised. It's compiled in two thirds
# of the time, and no access of its is optimised away before it can be checked.
function(tessel_compile_quickly target)
  if(TESSEL_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# The objects of the library, with what their headers and link need: for tests of its insides.
function(tessel_use_insides target)
  target_link_libraries(${target} PRIVATE tessel_objects tessel_warnings ${ARGN})
  target_compile_definitions(${target} PRIVATE TESSEL_BUILDING)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
endfunction()

# tessel_test(area/subject [LABELS ...] [SUPPORT file.cpp ...]): tests/area/subject_test.cpp as one program.
function(tessel_test name)
  cmake_parse_arguments(arg "" "" "LABELS;SUPPORT;LIBRARIES" ${ARGN})
  get_filename_component(area ${name} DIRECTORY)
  get_filename_component(subject ${name} NAME)
  set(target ${area}_${subject}_test)
  string(REPLACE "/" "_" target ${target})
  add_executable(${target} ${PROJECT_SOURCE_DIR}/tests/${name}_test.cpp ${arg_SUPPORT})
  tessel_use_insides(${target} ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  tessel_compile_quickly(${target})
  set(environment TESSEL_REGISTRY=${PROJECT_BINARY_DIR}/tests/none/registry.db)  # never the user's own
  set(settings GSETTINGS_BACKEND=set:memory)
  # Elsewhere than in the build of every day one process a program: starting one takes longer than most tests.
  if(CMAKE_CROSSCOMPILING)
    set_property(GLOBAL APPEND PROPERTY TESSEL_TEST_PROGRAMS ${target})  # for tools/dev/windows_tests.py
    return()
  endif()
  if(TESSEL_SANITIZE)
    add_test(NAME ${target} COMMAND ${target})
    set_tests_properties(${target} PROPERTIES LABELS "${area};${arg_LABELS}" TIMEOUT 600
      ENVIRONMENT ${environment} ENVIRONMENT_MODIFICATION ${settings})
    return()
  endif()
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES LABELS ${area} TIMEOUT 120 ENVIRONMENT ${environment} ENVIRONMENT_MODIFICATION ${settings})
  if(arg_LABELS)
    # A list doesn't survive as a property above; the names of the tests are known when ctest starts.
    set(labels ${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake)
    file(CONFIGURE OUTPUT ${labels} @ONLY CONTENT
      "if(@target@_TESTS)
  set_tests_properties(\${@target@_TESTS} PROPERTIES LABELS \"@area@;@arg_LABELS@\")
endif()
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels})
  endif()
endfunction()

# tessel_bench(area): bench/area_bench.cpp, built by the target "benches" only.
add_custom_target(benches)
function(tessel_bench area)
  add_executable(${area}_bench ${PROJECT_SOURCE_DIR}/bench/${area}_bench.cpp)
  tessel_use_insides(${area}_bench benchmark::benchmark ${ARGN})
  target_include_directories(${area}_bench PRIVATE ${PROJECT_SOURCE_DIR}/bench)
  add_dependencies(benches ${area}_bench)
endfunction()

# tessel_fuzz(grammar): fuzz/grammar_fuzz.cpp, with its corpus in fuzz/corpus/grammar.
function(tessel_fuzz grammar)
  add_executable(${grammar}_fuzz ${PROJECT_SOURCE_DIR}/fuzz/${grammar}_fuzz.cpp)
  tessel_use_insides(${grammar}_fuzz ${ARGN})
  target_link_options(${grammar}_fuzz PRIVATE -fsanitize=fuzzer)
endfunction()
