# Makes find_package(GTest) build GoogleTest from Debian's source package: there is no other for the target.
include(FetchContent)
set(BUILD_GMOCK OFF CACHE BOOL "")
set(INSTALL_GTEST OFF CACHE BOOL "")
FetchContent_Declare(GTest
    SOURCE_DIR ${CMAKE_SOURCE_DIR}/build/armhf-sysroot/usr/src/googletest
    OVERRIDE_FIND_PACKAGE SYSTEM)
