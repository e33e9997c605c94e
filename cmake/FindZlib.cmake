# Finds zlib and defines the target Zlib::Zlib. The shared library alone will do: the headers are the
# same for all architectures, and the development packages of two do not always stand side by side.
find_path(Zlib_INCLUDE_DIR zlib.h)
find_library(Zlib_LIBRARY NAMES z libz.so.1)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Zlib REQUIRED_VARS Zlib_LIBRARY Zlib_INCLUDE_DIR)
if(Zlib_FOUND AND NOT TARGET Zlib::Zlib)
    add_library(Zlib::Zlib UNKNOWN IMPORTED)
    set_target_properties(Zlib::Zlib PROPERTIES
        IMPORTED_LOCATION ${Zlib_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${Zlib_INCLUDE_DIR})
endif()
mark_as_advanced(Zlib_INCLUDE_DIR Zlib_LIBRARY)
