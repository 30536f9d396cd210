# Cross build for 64-bit ARM Linux, the camera's application processor.
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
#         -DCMAKE_SYSROOT=/path/to/sysroot [-DNORDA_CROSS_PREFIX=/path/to/bin/aarch64-linux-gnu-]
#
# CMAKE_SYSROOT: the target's file system as far as the build needs it: OpenCV (core, imgproc,
# imgcodecs, calib3d), fmt, spdlog, Highway, and for the tests and the host program GoogleTest,
# nlohmann-json, CLI11 and cpp-httplib, as headers and shared libraries under usr/ (Debian's
# usr/lib/aarch64-linux-gnu or a plain usr/lib both work). `make test-arm64` assembles one from
# Debian's arm64 packages; a camera maker passes the sysroot of their own SDK instead.
#
# NORDA_CROSS_PREFIX: the compiler's name up to "gcc"/"g++" (default: Debian's
# aarch64-linux-gnu-). A compiler that brings its own C library finds it in the sysroot; Debian's
# cross compiler brings one of its own and needs none there.
#
# Tests run through CMAKE_CROSSCOMPILING_EMULATOR: qemu-aarch64 (Debian's qemu-user) with the
# sysroot as its library prefix, or whatever -DNORDA_EMULATOR names (a list: program and options).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(NORDA_CROSS_PREFIX "aarch64-linux-gnu-" CACHE STRING "Cross compiler name prefix (path allowed)")
set(CMAKE_C_COMPILER "${NORDA_CROSS_PREFIX}gcc")
set(CMAKE_CXX_COMPILER "${NORDA_CROSS_PREFIX}g++")

if(NOT CMAKE_SYSROOT)
    message(FATAL_ERROR "aarch64 cross build: set -DCMAKE_SYSROOT=<the target's sysroot> "
                        "(`make test-arm64` makes one with tools/install-deps.sh arm64)")
endif()

# Libraries, headers and packages come from the sysroot only; build tools from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Shared libraries' own dependencies are found in the sysroot when linking executables.
foreach(dir usr/lib/aarch64-linux-gnu lib/aarch64-linux-gnu usr/lib lib)
    if(IS_DIRECTORY "${CMAKE_SYSROOT}/${dir}")
        string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${CMAKE_SYSROOT}/${dir}")
        string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${CMAKE_SYSROOT}/${dir}")
    endif()
endforeach()

find_program(NORDA_QEMU_AARCH64 qemu-aarch64)
set(NORDA_EMULATOR "" CACHE STRING "Runs aarch64 programs for the tests (default: qemu-aarch64 -L <sysroot>)")
if(NORDA_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${NORDA_EMULATOR})
elseif(NORDA_QEMU_AARCH64)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${NORDA_QEMU_AARCH64} -L ${CMAKE_SYSROOT})
endif()
