# Cross build for Linux arm64 with Debian's cross toolchain, run under user-mode emulation.
# The sensor ships for arm64 too, and arm64 differs from x86-64 where bugs hide: char is
# unsigned, memory ordering is weaker, and arguments travel in other registers.
# Needs g++-aarch64-linux-gnu and qemu-user (scripts/install-deps.sh installs both).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(KALVO_CROSS_SYSROOT /usr/aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# -O2 as in the native presets, no debug information: the emulated tests run faster and the
# build is lighter. (-O3 of g++ 12 raises false -Wrestrict errors inside std::string.)
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of Release builds")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of Release builds")

# The binutils of the target, for the checks that read the plug-in's symbols and headers.
foreach(tool AR RANLIB NM READELF OBJDUMP OBJCOPY STRIP)
  string(TOLOWER "${tool}" name)
  find_program(CMAKE_${tool} aarch64-linux-gnu-${name} REQUIRED)
endforeach()

# gtest_discover_tests and ctest run every test binary through the emulator. The prefix
# lets the emulator find the arm64 loader and runtime libraries; anything else (SQLite from
# Debian's multiarch packages, under /usr/lib/aarch64-linux-gnu) falls through to the host's
# own paths. The library path keeps the C library of the cross toolchain ahead of a multiarch
# libc6:arm64, which SQLite's package brings in: the loader and the C library must come from
# the same build.
find_program(KALVO_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${KALVO_QEMU_AARCH64};-L;${KALVO_CROSS_SYSROOT};-E;LD_LIBRARY_PATH=${KALVO_CROSS_SYSROOT}/lib")

# Debian's multiarch runtime package of SQLite (libsqlite3-0:arm64) is enough to link the
# stand-in host: its header is the same on every architecture. The development package would
# also pull in a second arm64 C library and upgrades of x86-64 packages to match.
set(KALVO_MULTIARCH_LIB /usr/lib/aarch64-linux-gnu)
if(NOT EXISTS "${KALVO_MULTIARCH_LIB}/libsqlite3.so" AND EXISTS "${KALVO_MULTIARCH_LIB}/libsqlite3.so.0"
   AND EXISTS /usr/include/sqlite3.h)
  set(SQLite3_INCLUDE_DIR /usr/include CACHE PATH "SQLite's header")
  set(SQLite3_LIBRARY "${KALVO_MULTIARCH_LIB}/libsqlite3.so.0" CACHE FILEPATH "SQLite for arm64")
endif()

# Arm64 libraries come from the cross toolchain's sysroot or Debian's multiarch folders
# (CMAKE_LIBRARY_ARCHITECTURE keeps the x86-64 ones out); headers such as RapidJSON's and
# {fmt}'s are shared by every architecture and found in /usr/include; programs are the host's.
set(CMAKE_FIND_ROOT_PATH "${KALVO_CROSS_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
