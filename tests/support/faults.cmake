# Linked into a test program, this makes functions of the C library fail on request. The names are
# those that the library's headers make of the calls with 64-bit files and times.
add_library(zyn_libc_faults OBJECT LibcFaults.cpp)
target_link_libraries(zyn_libc_faults PUBLIC zyn_options)
target_include_directories(zyn_libc_faults PUBLIC ${PROJECT_SOURCE_DIR}/tests)
set(zyn_wrapped_calls
    pthread_create pthread_join pthread_mutex_init pthread_mutex_lock pthread_mutex_unlock
    pthread_mutex_destroy usleep close unlink munmap mmap64 ftruncate64 fallocate64 lseek64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    list(APPEND zyn_wrapped_calls __fcntl_time64)
else()
    list(APPEND zyn_wrapped_calls fcntl64)
endif()
foreach(call IN LISTS zyn_wrapped_calls)
    target_link_options(zyn_libc_faults INTERFACE LINKER:--wrap=${call})
endforeach()
