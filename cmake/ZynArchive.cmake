# zyn_add_archive(<target>): the static client library as it is installed, one file that needs none
# of the project's other libraries. It consists of a single object in which every symbol but the nine
# functions is local: an application's own classes may have any name.
function(zyn_add_archive target)
    set(object ${CMAKE_CURRENT_BINARY_DIR}/ZynANSIAPI.o)
    set(parts ZynANSIAPI zyn_zynservice zyn_traceservice zyn_tracefiltering zyn_configfilereader
        zyn_support)
    set(objects ${parts})
    list(TRANSFORM objects REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")
    # The functions are named once, in the shared library's version script.
    file(STRINGS ${PROJECT_SOURCE_DIR}/src/ZynANSIAPI/ZynANSIAPI.map names REGEX "Zyn[A-Za-z]+;")
    list(TRANSFORM names REPLACE "[ ;]" "")
    list(TRANSFORM names PREPEND "--keep-global-symbol=")
    separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
    # Groups of sections that several objects may bring are settled here, as their names become local.
    add_custom_command(OUTPUT ${object}
        COMMAND ${CMAKE_CXX_COMPILER} ${flags} -nostdlib -r -Wl,--force-group-allocation
            -o ${object}.all ${objects}
        COMMAND ${CMAKE_OBJCOPY} ${names} ${object}.all ${object}
        DEPENDS ${parts} ${objects}
        COMMAND_EXPAND_LISTS
        VERBATIM)
    add_library(${target} STATIC ${object})
    set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
    set_target_properties(${target} PROPERTIES
        LINKER_LANGUAGE CXX
        OUTPUT_NAME ZynANSIAPI
        EXPORT_NAME ZynANSIAPI
        ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
    # $<LINK_ONLY> is what a static library needs of others when it is linked. The C++ library is
    # named for programs in C.
    target_link_libraries(${target} INTERFACE
        $<LINK_ONLY:TinyXML::TinyXML> $<LINK_ONLY:Threads::Threads> $<LINK_ONLY:stdc++>)
endfunction()
