# Functions of the C library that fail on request. The objects stand in front of the library's own
# functions, and are themselves left uninstrumented: a sanitizer's library calls some of them before
# it is ready.
set(zyn_fault_options -U_FORTIFY_SOURCE -fno-sanitize=all -fno-profile-arcs -fno-test-coverage)

# Linked into a test program; LibcFaults.h says what fails.
add_library(zyn_libc_faults OBJECT
    LibcCalls.cpp LibcFaults.cpp LibcInterpose.cpp NothrowNewInterpose.cpp)
target_link_libraries(zyn_libc_faults PUBLIC zyn_options ${CMAKE_DL_LIBS})
target_include_directories(zyn_libc_faults PUBLIC ${PROJECT_SOURCE_DIR}/tests)
target_compile_options(zyn_libc_faults PRIVATE ${zyn_fault_options})

# Preloaded into a program under test; the environment says what fails. A sanitizer has its own
# allocator, whose functions are not to be stood in front of.
add_library(zyn_fault_preload MODULE FaultPreload.cpp LibcCalls.cpp LibcInterpose.cpp)
if(NOT ZYN_SANITIZE)
    target_sources(zyn_fault_preload PRIVATE AllocationInterpose.cpp)
endif()
target_link_libraries(zyn_fault_preload PRIVATE zyn_options ${CMAKE_DL_LIBS})
target_include_directories(zyn_fault_preload PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_compile_options(zyn_fault_preload PRIVATE ${zyn_fault_options})
target_compile_definitions(zyn_fault_preload PRIVATE $<$<BOOL:${ZYN_COVERAGE}>:ZYN_COVERAGE>)
target_link_options(zyn_fault_preload PRIVATE -fno-sanitize=all)
set_target_properties(zyn_fault_preload PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
