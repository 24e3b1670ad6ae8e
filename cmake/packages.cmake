# Debian packages: `cpack` in the build tree, or ./run package. One for each component.
set(architectures x86_64=amd64 aarch64=arm64 arm=armhf)
foreach(pair ${architectures})
    if(pair MATCHES "^${CMAKE_SYSTEM_PROCESSOR}=(.*)")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_MATCH_1})
    endif()
endforeach()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qeli2c)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# Its default: every component has a summary of its own, as the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The qeli2c developers <qeli2c@qeli2c.example>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_SOURCE_DIR}/build/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL runtime development tools simulator)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/finish.cmake)
set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# What of other projects the objects need: of the libraries libc alone, for whose call of ldconfig there is a trigger. dpkg-shlibdeps
# knows only what is installed here; programs for another architecture ask for what Debian 12 has.
set(libc "libc6 (>= 2.34)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${libc}, ")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "${libc}")
if(CMAKE_CROSSCOMPILING)
    set(cxx "libc6 (>= 2.36), libgcc-s1 (>= 12), libjsoncpp25 (>= 1.9.5), libstdc++6 (>= 12)")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${cxx}, ")
    set(CPACK_DEBIAN_SIMULATOR_PACKAGE_DEPENDS "${cxx}, libfuse3-3 (>= 3.14), ")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SHLIBDEPS ON)
endif()

# A board has its own platform services: a package of that name stands for them.
set(platform "qelplatform-services-1")
if(NOT QELI2C_PLATFORM_LIBRARIES)
    list(APPEND CPACK_COMPONENTS_ALL platform)
    set(platform "libqelplatform1 (>= ${PROJECT_VERSION}) | qelplatform-services-1")
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqeli2c1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${platform}")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "I2C and SMBus access for board control planes
The processes of a board's management share its I2C buses, many devices of
which are behind multiplexer switches. This library takes the bus for them,
opens and closes the path, transfers through i2c-dev and tries again when
that failed.")

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libqelplatform1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES qelplatform-services-1)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION "platform services of the qeli2c library for any Linux host
Log, semaphores, file locks and system calls as libqeli2c1 asks for them. A
board that has libraries of its own for that does without this package.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqeli2c-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqeli2c1 (= ${version}), libqelplatform1 (= ${version}), linux-libc-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "I2C and SMBus access for board control planes (development files)
Header, pkg-config and CMake packages, manual pages, guides and examples for
programs that use libqeli2c1.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qeli2c)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libqeli2c1 (= ${version}), ${platform}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line tool for the devices on a board's I2C buses
Scans buses through their switches, reads and writes registers, EEPROMs,
pins, power monitors, retimers and board logic, holds buses, tells who has
them, and checks a board's platform services.")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME qeli2c-sim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION devel)
string(APPEND CPACK_DEBIAN_SIMULATOR_PACKAGE_DEPENDS "libqeli2c1 (= ${version})")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_RECOMMENDS "qeli2c (= ${version})")
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION "simulated board with I2C buses for any program
Runs unmodified programs on the I2C buses of a board that a file describes,
with faults, traces and a judge, and measures the library under load.")

foreach(component runtime platform)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA
        ${CMAKE_SOURCE_DIR}/packaging/${component}/shlibs ${CMAKE_SOURCE_DIR}/packaging/${component}/symbols
        ${CMAKE_SOURCE_DIR}/packaging/${component}/triggers)
endforeach()
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
