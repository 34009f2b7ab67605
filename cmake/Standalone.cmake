# PLENDIX_STANDALONE: a driver that is one file to copy. TinyXML and the C++ library are linked into it,
# hidden, and of the C library it asks for old versions only.
set(PLENDIX_OLDEST_C_LIBRARY 2.4 CACHE STRING "Version of the GNU C library to go back to where possible")
find_library(PLENDIX_TINYXML_ARCHIVE libtinyxml.a HINTS ${TinyXML_LIBDIR} REQUIRED)
set(old_c_library ${PROJECT_BINARY_DIR}/old-c-library)
set(compiler ${CMAKE_CXX_COMPILER})
if(CMAKE_SYSROOT)
  string(APPEND compiler " --sysroot=${CMAKE_SYSROOT}")
endif()
if(CMAKE_CXX_COMPILER_TARGET)
  string(APPEND compiler " --target=${CMAKE_CXX_COMPILER_TARGET}")
endif()
execute_process(COMMAND ${PROJECT_SOURCE_DIR}/cmake/old-c-library.sh ${compiler} ${CMAKE_READELF}
                        ${PLENDIX_OLDEST_C_LIBRARY} ${old_c_library}
                COMMAND_ERROR_IS_FATAL ANY)

add_library(plendix_tinyxml INTERFACE)
target_include_directories(plendix_tinyxml INTERFACE ${TinyXML_INCLUDE_DIRS})
target_compile_options(plendix_tinyxml INTERFACE ${TinyXML_CFLAGS_OTHER})
target_link_libraries(plendix_tinyxml INTERFACE ${PLENDIX_TINYXML_ARCHIVE})

# For a C library without 64-bit times; src/platform/old_c_library.cpp reads the calendar in its place.
function(plendix_link_old_c_library target)
  target_link_options(${target} PRIVATE -L${old_c_library})
endfunction()

function(plendix_link_standalone target)
  plendix_link_old_c_library(${target})
  # The compiler names the abstract classes' function weakly, which takes no member of an archive along.
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc
    LINKER:--as-needed,--exclude-libs,ALL,--gc-sections,--undefined=__cxa_pure_virtual)
endfunction()
