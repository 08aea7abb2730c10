include(${CMAKE_CURRENT_LIST_DIR}/header_library.cmake)
header_library(fmt::fmt fmt FMT_HEADER_ONLY)
set(fmt_FOUND TRUE)
