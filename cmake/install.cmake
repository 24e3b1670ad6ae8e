# What `cmake --install` puts where. Nothing installed carries a run path or names this tree, so that all of it may lie in
# any prefix and be moved. Components: runtime, platform, development, tools, simulator.
include(CMakePackageConfigHelpers)

install(TARGETS qeli2c LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/qeli2c.h platform/qelplatform.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(NOT QELI2C_PLATFORM_LIBRARIES)
    install(TARGETS qelplatform LIBRARY COMPONENT platform NAMELINK_COMPONENT development)
endif()

# For those who build against it: pkg-config and CMake.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qeli2c)
file(RELATIVE_PATH up_from_package /prefix/${package_dir} /prefix)
file(RELATIVE_PATH up_from_pkgconfig /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" up_from_pkgconfig ${up_from_pkgconfig})
set(platform_libraries "-lqelplatform")
if(QELI2C_PLATFORM_LIBRARIES)
    list(JOIN QELI2C_PLATFORM_LIBRARIES " " platform_libraries)
endif()
configure_file(cmake/qeli2c.pc.in ${CMAKE_BINARY_DIR}/qeli2c.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qeli2c.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/qeli2cConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/qeli2cConfig.cmake.in ${CMAKE_BINARY_DIR}/qeli2cConfig.cmake @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qeli2cConfig.cmake ${CMAKE_BINARY_DIR}/qeli2cConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development PATTERN man EXCLUDE PATTERN api EXCLUDE)
install(FILES examples/board_tour.c examples/board_power.cpp examples/read_eeprom.py examples/consumer/CMakeLists.txt
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

install(TARGETS qeli2c_program RUNTIME COMPONENT tools)
install(FILES boards/reference.json boards/board.schema.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/qeli2c/boards COMPONENT simulator)
install(TARGETS qeli2c_sim qeli2c-stress RUNTIME COMPONENT simulator)
install(TARGETS qelsim LIBRARY DESTINATION ${QELI2C_PRIVATE_LIBDIR} COMPONENT simulator)

# Manual pages: of the programs, written by themselves, and those kept in docs/man.
# A program for another machine cannot be asked here: the native build's pages serve it too.
set(shared ${CMAKE_BINARY_DIR}/share)
if(CMAKE_CROSSCOMPILING)
    set(shared ${CMAKE_SOURCE_DIR}/build/release/share)
endif()
install(FILES ${shared}/man/man1/qeli2c.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL)
install(FILES ${shared}/man/man1/qeli2c-sim.1 ${shared}/man/man1/qeli2c-stress.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT simulator OPTIONAL)
install(FILES ${shared}/bash-completion/completions/qeli2c
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools OPTIONAL)
file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/*.[1-8])
foreach(page ${pages})
    string(REGEX MATCH "[1-8]$" section ${page})
    set(component development)
    if(section STREQUAL 5)
        set(component simulator)
    endif()
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()
