# Warnings and sanitizers, the same for every target of the project.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
if(PLENDIX_WERROR)
  add_compile_options(-Werror)
endif()
if(PLENDIX_SANITIZE)  # -g1: their reports need lines, not variables
  add_compile_options(-fsanitize=${PLENDIX_SANITIZE} -g1 -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${PLENDIX_SANITIZE})
endif()
# What is loaded into somebody else's process ends it rather than let a stack be overwritten, and
# leaves nothing writable that need not be. Fortified calls need an optimising build, and sanitizers
# bring checks of their own.
add_compile_options(-fstack-protector-strong)
if(NOT PLENDIX_SANITIZE)
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
endif()
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
add_compile_options(-fno-plt)  # with all symbols bound at once, calls of libraries need no stubs
# Times beyond January 2038 and files beyond 2 GiB on 32-bit machines too (C library 2.34 or later).
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64)
  if(NOT PLENDIX_STANDALONE)  # which goes back further, and whose clock needs no C library
    add_compile_definitions(_TIME_BITS=64)
  endif()
endif()
if(PLENDIX_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link -DNDEBUG -fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

# For sources that read the command line: its template library takes most of a release build's
# time to optimise, and runs once.
function(plendix_quick_compile)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O0>)
endfunction()
