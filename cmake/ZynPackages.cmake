# The Debian packages "zyntool" and "libzynansiapi-dev", one per install component.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zyntool developers <dev@zyntool.invalid>")
# Each package has its own, below.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL tool dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_IGNORE_GROUPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
else()
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zyntool)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/postinst)
set(CPACK_DEBIAN_TOOL_DESCRIPTION
"operator's tools for runtime tracing
Converts the binary log files of the tracing service into text, verifies
and deletes them, and controls the running service: pause, resume, reload
of the configuration, preservation of logs.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzynansiapi-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libc6-dev, libstdc++-12-dev | libstdc++-dev, libtinyxml-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
"client library for runtime tracing, development files
The programming interface by which an application asks whether a trace
point is enabled and sends the tracing service control requests. Header
for C and C++, static library, and files for pkg-config and CMake.")

include(CPack)
