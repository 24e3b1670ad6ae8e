# One interface target carries what every target of the project is compiled with.
set(QELI2C_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")

add_library(qeli2c_flags INTERFACE)
target_compile_definitions(qeli2c_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(qeli2c_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
    -Wcast-align -Wwrite-strings -Werror
    -fno-strict-overflow -fstack-protector-strong)

# Warnings are those of the compiler it is shipped with.
if(QELI2C_FUZZ)
    target_compile_options(qeli2c_flags INTERFACE -w)
endif()

if(QELI2C_SANITIZE)
    target_compile_options(qeli2c_flags INTERFACE
        -fsanitize=${QELI2C_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(qeli2c_flags INTERFACE -fsanitize=${QELI2C_SANITIZE})
else()
    target_compile_options(qeli2c_flags INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2> -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64")
        target_compile_options(qeli2c_flags INTERFACE -fcf-protection)
    endif()
    target_link_options(qeli2c_flags INTERFACE
        -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,separate-code -Wl,--as-needed)
endif()

# Shared objects that are loaded into other people's processes need no C++ run-time library: no exceptions,
# no RTTI, no guarded statics, and the C driver links them so that nothing of it can slip in.
add_library(qeli2c_no_cxx_runtime INTERFACE)
target_compile_options(qeli2c_no_cxx_runtime INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-sanitize=vptr>
    -fvisibility=hidden)
if(NOT QELI2C_SANITIZE)
    target_link_options(qeli2c_no_cxx_runtime INTERFACE -Wl,-z,defs)
endif()

# On 32-bit ARM the stack protector's guard is a variable of the dynamic linker, which would become one more library
# that these objects need.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND NOT QELI2C_SANITIZE)
    target_compile_options(qeli2c_no_cxx_runtime INTERFACE -fno-stack-protector)
endif()

# Code whose frames all stay far below a page: none can step over a guard page, so the probes that GCC for 32-bit ARM
# puts even into the smallest frames are left out.
add_library(qeli2c_small_frames INTERFACE)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND NOT QELI2C_SANITIZE)
    target_compile_options(qeli2c_small_frames INTERFACE -fno-stack-clash-protection -Wframe-larger-than=2048)
endif()
