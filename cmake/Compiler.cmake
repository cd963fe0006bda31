# What every target of the project is compiled and linked with.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# A project that includes this one chooses its own warnings, and its flags may leave symbols to be
# resolved at load time.
if(PROJECT_IS_TOP_LEVEL)
  add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
  find_program(CCACHE ccache)
  mark_as_advanced(CCACHE)
  if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
  endif()
endif()
# A fused multiply-add rounds once where the estimator's arithmetic rounds twice.
add_compile_options(-ffp-contract=off)

set(ZORVEL_SANITIZERS "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(ZORVEL_SANITIZERS)
  # Enough for function names and lines in a report. More optimisation or debugging information would
  # double the time to compile.
  add_compile_options(-fsanitize=${ZORVEL_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -O1 -g1)
  add_link_options(-fsanitize=${ZORVEL_SANITIZERS})
elseif(PROJECT_IS_TOP_LEVEL)
  add_link_options(-Wl,--no-undefined)
endif()

if(ZORVEL_CLANG_TIDY)
  find_program(CLANG_TIDY clang-tidy REQUIRED)
  set(CMAKE_CXX_CLANG_TIDY "${CLANG_TIDY};--quiet")
endif()

# Relative paths: wherever the installed tree is moved to, the tool and the libraries find each other.
file(RELATIVE_PATH libraries_from_tool "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set(tool_rpath "$ORIGIN/${libraries_from_tool}")
set(camera_folder "${CMAKE_INSTALL_DATADIR}/zorvel/camera")
file(RELATIVE_PATH camera_from_tool "/${CMAKE_INSTALL_BINDIR}" "/${camera_folder}")
# Where Debian's Python looks for the modules of packages.
set(python_folder "lib/python3/dist-packages")
file(RELATIVE_PATH libraries_from_python "/${python_folder}/zorvel" "/${CMAKE_INSTALL_LIBDIR}")
set(python_rpath "$ORIGIN/${libraries_from_python}")
set(CMAKE_INSTALL_RPATH "$ORIGIN")

# Limits what `target` exports to the symbols in the version script `map`. Hidden visibility alone
# would still export templates of Boost and of the standard library.
function(limit_exports target map)
  target_link_options(${target} PRIVATE "-Wl,--version-script=${map}")
  set_target_properties(${target} PROPERTIES LINK_DEPENDS "${map}")
endfunction()

# add_front_end_library(NAME SOURCES...): a library for the tool, the fuzzers, the benchmarks and
# other front ends. It is linked into them and not installed. Being position-independent, it can also
# go into a shared object, such as an extension module of another language.
function(add_front_end_library name)
  add_library(${name} STATIC ${ARGN})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
endfunction()
