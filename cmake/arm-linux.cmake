# Cross-build for 32-bit little-endian ARM with Debian's compiler and foreign packages: for armel, or
# with hard float for armhf.
set(PLENDIX_ARM armel CACHE STRING "Debian architecture: armel or armhf")
set_property(CACHE PLENDIX_ARM PROPERTY STRINGS armel armhf)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PLENDIX_ARM)
if(PLENDIX_ARM STREQUAL "armel")
  set(triplet arm-linux-gnueabi)
elseif(PLENDIX_ARM STREQUAL "armhf")
  set(triplet arm-linux-gnueabihf)
else()
  message(FATAL_ERROR "PLENDIX_ARM is '${PLENDIX_ARM}': give armel or armhf")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # GCC's note that C++17 changed a calling convention

# No -L: the foreign packages put the loader where programs look for it, and the cross compiler's
# own C library, of another version, must not be mixed with theirs.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${triplet}/pkgconfig:/usr/share/pkgconfig)
