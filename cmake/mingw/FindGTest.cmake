# GoogleTest from Debian's copy of its sources.
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK ON)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
set(GTest_FOUND TRUE)
