# Toolchain: 32-bit Windows from Linux.
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw/toolchain.cmake)
