# The command-line tool. What it shares with other programs and with its unit tests is a library of its own.
find_package(CLI11 REQUIRED)
find_package(jsoncpp REQUIRED)

add_library(qeli2c_tool_parts STATIC
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/board_file.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/device_path.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/messages.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/number.cpp)
target_include_directories(qeli2c_tool_parts PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(qeli2c_tool_parts PUBLIC qeli2c_flags simboard_description)

# How a program's command line becomes its manual page.
add_library(qeli2c_manual_page STATIC ${CMAKE_CURRENT_LIST_DIR}/qeli2c/manual.cpp)
target_link_libraries(qeli2c_manual_page PRIVATE qeli2c_flags CLI11::CLI11)

add_executable(qeli2c_program
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/batch.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/bus.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/call_checks.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/chart.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/child.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/command_line.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/dump.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/eeprom.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/eeprom_pages.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/epld.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/expander.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/get.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/gpio.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/hold.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/info.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/interrupt.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/list.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/lock_checks.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/main.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/monitor.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/muted.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/output.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/owners.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/power.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/probe.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/progress.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/register_access.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/retimer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/scan.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/scan_print.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/selftest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/set.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/smbus.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/switch.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/transfer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c/xfer.cpp)
set_target_properties(qeli2c_program PROPERTIES OUTPUT_NAME qeli2c)
target_compile_definitions(qeli2c_program PRIVATE QELI2C_VERSION="${PROJECT_VERSION}")
target_link_libraries(qeli2c_program PRIVATE
    qeli2c_tool_parts qeli2c_manual_page qeli2c qelplatform qeli2c_flags CLI11::CLI11 JsonCpp::JsonCpp)

# Manual pages and completion are what the programs tell of themselves; other pages are written by hand.
set(pages ${CMAKE_BINARY_DIR}/share/man)
file(GLOB written CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/*.[0-9])
foreach(page ${written})
    cmake_path(GET page EXTENSION LAST_ONLY section)
    string(REPLACE . man section ${section})
    cmake_path(GET page FILENAME name)
    configure_file(${page} ${pages}/${section}/${name} COPYONLY)
endforeach()
if(NOT CMAKE_CROSSCOMPILING)
    set(completion ${CMAKE_BINARY_DIR}/share/bash-completion/completions/qeli2c)
    file(MAKE_DIRECTORY ${pages}/man1 ${CMAKE_BINARY_DIR}/share/bash-completion/completions)
    add_custom_command(OUTPUT ${completion}
        COMMAND qeli2c_program --completion bash > ${completion} DEPENDS qeli2c_program VERBATIM)
    set(manuals ${completion})
    foreach(program qeli2c_program qeli2c_sim qeli2c-stress)
        string(REGEX REPLACE "_program$" "" name ${program})
        string(REPLACE _ - name ${name})
        set(page ${pages}/man1/${name}.1)
        add_custom_command(OUTPUT ${page} COMMAND ${program} --man > ${page} DEPENDS ${program} VERBATIM)
        list(APPEND manuals ${page})
    endforeach()
    add_custom_target(qeli2c_manual ALL DEPENDS ${manuals})
endif()
