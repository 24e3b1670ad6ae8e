# The board runner.
find_package(CLI11 REQUIRED)
if(NOT TARGET JsonCpp::JsonCpp)
    find_package(jsoncpp REQUIRED)
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(fuse3 REQUIRED IMPORTED_TARGET fuse3)

add_executable(qeli2c_sim
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/check.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/chosen_board.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/color.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/command_line.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/cuse_requests.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/environment.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/faults.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/image.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/inject.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/json_output.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/main.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/peek.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/poke.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/report.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/report_locks.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/reset.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/run.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/serve.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/show.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/show_facts.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/spool.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/standing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/status.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/subject.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace_json.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace_session.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace_style.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace_text.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/trace_vcd.cpp
    ${CMAKE_CURRENT_LIST_DIR}/qeli2c-sim/verify.cpp)
set_target_properties(qeli2c_sim PROPERTIES OUTPUT_NAME qeli2c-sim)
target_compile_definitions(qeli2c_sim PRIVATE
    QELI2C_VERSION="${PROJECT_VERSION}"
    QELI2C_PRIVATE_LIBDIR_FROM_BIN="${QELI2C_PRIVATE_LIBDIR_FROM_BIN}"
    QELI2C_DATADIR_FROM_BIN="${QELI2C_DATADIR_FROM_BIN}")
target_link_libraries(qeli2c_sim PRIVATE
    simboard_board qeli2c_tool_parts qeli2c_manual_page qeli2c_flags CLI11::CLI11 JsonCpp::JsonCpp PkgConfig::fuse3)
# Not linked, but looked for beside the program.
add_dependencies(qeli2c_sim qelsim boards)
