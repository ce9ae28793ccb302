# Cross-building for the camera (AArch64 Linux) with Debian's cross compiler
# (crossbuild-essential-arm64) and its multiarch libraries (libfcgi-dev:arm64,
# libcjson-dev:arm64, and for the tests libgtest-dev:arm64 and
# libjpeg62-turbo-dev:arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Libraries and headers come from the arm64 multiarch directories only; the
# programs that run during the build are the host's.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# pkg-config must read the arm64 .pc files, not the host's.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Target programs (tests, simulators) run under the emulator when the host
# runs them; test discovery never runs them at build time.
find_program(QEMU_AARCH64 qemu-aarch64)
if(QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64})
endif()
