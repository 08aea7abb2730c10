# header_library(target folder [definition]): a library that is all headers, in /usr/include/folder. Only that folder is
# shown to the compiler: what lies beside it belongs to another system.
function(header_library target folder)
  set(shown ${CMAKE_BINARY_DIR}/headers/${folder})
  file(MAKE_DIRECTORY ${shown})
  file(CREATE_LINK /usr/include/${folder} ${shown}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${shown})
  target_compile_definitions(${target} INTERFACE ${ARGN})
endfunction()
