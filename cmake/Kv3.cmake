# Helpers shared by every folder of the tree.

# kv3_add_subdirs(): adds each immediate subfolder of the current folder that has a CMakeLists.txt.
function(kv3_add_subdirs)
    file(GLOB children LIST_DIRECTORIES true RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/*)
    list(SORT children)
    foreach(child ${children})
        if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${child} AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${child}/CMakeLists.txt)
            add_subdirectory(${child})
        endif()
    endforeach()
endfunction()

# kv3_add_test(NAME SOURCES a.cpp b.cpp LIBS lib... [LABELS l...] [TIMEOUT s])
# One GoogleTest executable registered as one CTest test. Label "tsan" marks tests that the
# ThreadSanitizer run executes; label "slow" marks tests the sanitizer runs may skip.
function(kv3_add_test name)
    cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    # The ThreadSanitizer build compiles only the tests that exercise threads.
    if(KV3_SANITIZE STREQUAL "thread" AND NOT "tsan" IN_LIST T_LABELS)
        return()
    endif()
    set_property(GLOBAL APPEND PROPERTY KV3_TESTS ${name})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main GTest::gmock Threads::Threads)
    add_test(NAME ${name} COMMAND ${name})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 600)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "KV3_SOURCE_DIR=${CMAKE_SOURCE_DIR};KV3_BINARY_DIR=${CMAKE_BINARY_DIR}")
    if(T_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}")
    endif()
endfunction()

# kv3_add_bench(NAME SOURCES ... LIBS ...): a Google Benchmark program in bench/.
function(kv3_add_bench name)
    cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${B_SOURCES})
    target_link_libraries(${name} PRIVATE ${B_LIBS} benchmark::benchmark Threads::Threads)
endfunction()

# kv3_add_fuzz(NAME SOURCES ... LIBS ... CORPUS dir): a libFuzzer target; CORPUS is its seed folder
# (an absolute path, usually ${CMAKE_CURRENT_SOURCE_DIR}/corpus).
function(kv3_add_fuzz name)
    cmake_parse_arguments(F "" "CORPUS" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${F_SOURCES})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE ${F_LIBS})
    set_property(GLOBAL APPEND PROPERTY KV3_FUZZ_TARGETS "$<TARGET_FILE:${name}> ${F_CORPUS}")
endfunction()
