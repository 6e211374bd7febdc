# Debian's cross compiler for armhf, with the sysroot that script/cross-armhf makes. Elsewhere only its place differs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # what GCC 7 changed, and nobody mixes any more

cmake_path(SET zyr_sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot)
set(CMAKE_SYSROOT ${zyr_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt's tools run on the machine that compiles.
set(QT_HOST_PATH /usr)
file(GLOB zyr_host_tools /usr/lib/*/cmake/Qt6CoreTools)
cmake_path(GET zyr_host_tools PARENT_PATH QT_HOST_PATH_CMAKE_DIR)
