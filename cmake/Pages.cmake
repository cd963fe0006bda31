# How web pages are made from the modules and styles in pages/.

find_program(ESBUILD esbuild REQUIRED)
mark_as_advanced(ESBUILD)

# Puts a module and all that it imports into one script.
set(bundle "${ESBUILD}" --bundle --format=iife --target=es2020 --charset=utf8 --log-level=warning)

# add_page(NAME HEADER header FUNCTION function PAGE page [FOLDER folder]): a web page that embed_page.py
# puts together, as bytes; what is not beside it is taken from the folder. It is a library of its own so
# that clang-tidy can leave it alone.
function(add_page name)
  cmake_parse_arguments(PARSE_ARGV 1 page "" "HEADER;FUNCTION;PAGE;FOLDER" "")
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(script "${PROJECT_SOURCE_DIR}/cmake/embed_page.py")
  set(reasons "${PROJECT_SOURCE_DIR}/include/zv/force.hpp")
  add_custom_command(
    OUTPUT ${name}.cpp
    COMMAND Python3::Interpreter "${script}" ${name}.cpp ${page_HEADER} ${page_FUNCTION} "${reasons}"
            "${PROJECT_SOURCE_DIR}/pages/${page_PAGE}" "${page_FOLDER}" ${bundle} --global-name=page
    DEPENDS "${script}" "${reasons}"
    DEPFILE ${name}.cpp.d
    VERBATIM)
  add_front_end_library(${name} ${name}.cpp)
  set_target_properties(${name} PROPERTIES CXX_CLANG_TIDY "")
endfunction()
