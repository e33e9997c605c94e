# Toolchain for 32-bit x86 programs built on a 64-bit x86 Debian host.
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_SYSTEM_LIBRARY_PATH /usr/lib/i386-linux-gnu)
set(CMAKE_FIND_LIBRARY_CUSTOM_LIB_SUFFIX "")
set(FIND_LIBRARY_USE_LIB64_PATHS OFF)
