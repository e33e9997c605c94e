# The compile options that every target of the project shares, and zyn_add_library, which makes
# one static library per source folder so that the link order shows which folder may use which.

add_library(zyn_options INTERFACE)
target_include_directories(zyn_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(zyn_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnull-dereference
    # The same sources give the same bytes wherever they are checked out.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(zyn_options INTERFACE -Wduplicated-cond -Wlogical-op -Wsuggest-override
        # Unique symbols could not be made local in the installed client library.
        -fno-gnu-unique
        # g++ 12 sees an overlap in every "text" + std::string.
        -Wno-restrict)
endif()
# Log files pass 2 GiB and times pass 2038 on 32-bit builds as well.
target_compile_definitions(zyn_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(ZYN_WERROR)
    target_compile_options(zyn_options INTERFACE -Werror)
endif()
# Not for sanitizers, which look themselves, nor without the optimiser, which the fortified headers
# need. A target with the property ZYN_UNFORTIFIED defines such functions itself. What it costs, and why
# not level 3: doc/performance.md.
if(ZYN_HARDEN AND CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$"
        AND NOT ZYN_SANITIZE AND NOT ZYN_COVERAGE)
    target_compile_options(zyn_options INTERFACE -fstack-protector-strong -fcf-protection=full
        -U_FORTIFY_SOURCE $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ZYN_UNFORTIFIED>>>:-D_FORTIFY_SOURCE=2>)
    target_link_options(zyn_options INTERFACE LINKER:-z,relro,-z,now)
endif()
if(ZYN_SANITIZE)
    target_compile_options(zyn_options INTERFACE
        -fsanitize=${ZYN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(zyn_options INTERFACE -fsanitize=${ZYN_SANITIZE})
endif()
if(ZYN_BUILD_FUZZ)
    # Counters of what an input reaches, for libFuzzer; its main function is the targets' alone.
    target_compile_options(zyn_options INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(zyn_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(ZYN_COVERAGE)
    target_compile_options(zyn_options INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(zyn_options INTERFACE --coverage)
endif()

# zyn_add_library(<name> SOURCES <file>... [USES <library>...])
function(zyn_add_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${name} PUBLIC zyn_options ${ARG_USES})
endfunction()

# zyn_add_test(<name> SOURCES <file>... [USES <library>...] [LONG])
# One GoogleTest program; every test case in it becomes a ctest test of its own. LONG: they go over and
# over what others reach, for minutes, and carry the ctest label "long".
function(zyn_add_test name)
    cmake_parse_arguments(ARG "LONG" "" "SOURCES;USES" ${ARGN})
    set(labels)
    if(ARG_LONG)
        set(labels LABELS long)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE zyn_options ${ARG_USES} GTest::gmock GTest::gtest_main)
    # Test cases are run once: optimising them costs more than it gives, and makes g++ see dangers in
    # the inlined standard library that are none. For gcov nothing may be inlined: each copy of a
    # function would have branches of its own.
    if(NOT ZYN_COVERAGE)
        target_compile_options(${name} PRIVATE -O1)
    endif()
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 ${labels})
endfunction()
