# Cross-compiling for aarch64 on another Linux; scripts/aarch64.sh uses it. What is built is executed
# by an emulator where a test or a step of the build executes it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)
# Behind everything else, for libraries that are headers alone.
set(CMAKE_CXX_FLAGS_INIT "-idirafter /usr/include")
