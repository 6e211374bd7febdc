# Like armhf.cmake, for programs that run in an emulator on the machine that compiles, and not on a device.
include(${CMAKE_CURRENT_LIST_DIR}/armhf.cmake)

# They find the sysroot's loader and libraries by themselves. With the emulator's own way, its option -L, the root
# directory is the sysroot's for those who open it, and what lies below is not there.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
string(CONCAT CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,--disable-new-dtags,"
    "-rpath=${CMAKE_SYSROOT}/lib/arm-linux-gnueabihf:${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf")
string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT} "
    "-Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux-armhf.so.3")
