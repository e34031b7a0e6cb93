# Debian's cross compilers with a sysroot of unpacked packages (scripts/sysroot), and qemu to run what they make.
# A file that includes this one sets WQZ_ARCH (Debian's name), WQZ_TRIPLET, WQZ_DYNAMIC_LINKER and
# WQZ_EMULATOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${WQZ_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${WQZ_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${WQZ_TRIPLET})

set(WQZ_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${WQZ_ARCH})
get_filename_component(WQZ_SYSROOT ${WQZ_SYSROOT} ABSOLUTE)
set(CMAKE_SYSROOT ${WQZ_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${WQZ_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${WQZ_SYSROOT}/usr/lib/${WQZ_TRIPLET}/pkgconfig:${WQZ_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${WQZ_SYSROOT})

# Programs find the dynamic linker and the libraries in the sysroot by themselves. The emulator could look there, too (-L),
# but it would also show the sysroot to a program that opens "/", as libudev does.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${WQZ_SYSROOT}/lib/${WQZ_DYNAMIC_LINKER}")
set(CMAKE_CROSSCOMPILING_EMULATOR ${WQZ_EMULATOR}
  -E LD_LIBRARY_PATH=${WQZ_SYSROOT}/lib/${WQZ_TRIPLET}:${WQZ_SYSROOT}/usr/lib/${WQZ_TRIPLET})
