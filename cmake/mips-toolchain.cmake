# Cross build for the controller: 32-bit big-endian MIPS (MIPS32r2, o32 ABI)
# with Debian's g++-mips-linux-gnu; programs run on this host under qemu-user.
#
# The controller's C library keeps time_t at 32 bits. glibc on mips does the
# same by default, but a distribution or a dependency may switch to 64-bit
# time (_TIME_BITS=64), so the build says _TIME_BITS=32 outright: every
# time_t, time() and struct timespec here has the device's width, and a wrap
# in 2038 shows up in this build as it would on the device. The daemon's own
# stamps are uint32_t whatever the C library uses (src/base/clock.h).
#
# Libraries for the target (SQLite, nanopb, pugixml, GoogleTest) are built
# from Debian's sources into TALLYD_MIPS_PREFIX by scripts/mips-deps.sh and
# found there only; host programs (the nanopb generator) come from the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)

set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)

set(TALLYD_MIPS_FLAGS "-EB -march=mips32r2 -mabi=32 -D_TIME_BITS=32")
set(CMAKE_C_FLAGS_INIT "${TALLYD_MIPS_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${TALLYD_MIPS_FLAGS}")

set(TALLYD_MIPS_SYSROOT /usr/mips-linux-gnu)
if(NOT TALLYD_MIPS_PREFIX)
  set(TALLYD_MIPS_PREFIX "$ENV{TALLYD_MIPS_PREFIX}")
endif()
set(CMAKE_FIND_ROOT_PATH ${TALLYD_MIPS_PREFIX} ${TALLYD_MIPS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# try_compile projects see the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TALLYD_MIPS_PREFIX)

# Test programs (and gtest's test discovery) run under qemu with the
# target's C library.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips -L ${TALLYD_MIPS_SYSROOT})

# pkg-config must see the target's libraries only, never the host's .pc
# files (the host's cairo would otherwise be taken for the target's).
set(ENV{PKG_CONFIG_LIBDIR} "${TALLYD_MIPS_PREFIX}/lib/pkgconfig:${TALLYD_MIPS_PREFIX}/share/pkgconfig")
