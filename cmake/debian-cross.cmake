# Cross-compiles for another 64-bit Linux with Debian's compilers (g++-aarch64-linux-gnu, g++-s390x-linux-gnu) and runs
# what was built under QEMU. KIP_CROSS_PROCESSOR names the processor as both do: aarch64 or s390x.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KIP_CROSS_PROCESSOR)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR "${KIP_CROSS_PROCESSOR}")

set(CMAKE_C_COMPILER "${KIP_CROSS_PROCESSOR}-linux-gnu-gcc")
set(CMAKE_CXX_COMPILER "${KIP_CROSS_PROCESSOR}-linux-gnu-g++")

# Libraries and headers of the build machine are of no use; its programs are.
set(CMAKE_FIND_ROOT_PATH "/usr/${KIP_CROSS_PROCESSOR}-linux-gnu")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-${KIP_CROSS_PROCESSOR}" -L "${CMAKE_FIND_ROOT_PATH}")
