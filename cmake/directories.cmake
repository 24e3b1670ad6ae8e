# Where things go. On Debian libraries lie in a directory of their architecture, whatever the prefix, so that one build serves both
# `cmake --install` and the packages, and cross builds too. -D CMAKE_INSTALL_LIBDIR=lib says otherwise.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Directory of libraries below the prefix")
endif()
include(GNUInstallDirs)

# What only our own programs load.
set(QELI2C_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/qeli2c)
file(RELATIVE_PATH QELI2C_PRIVATE_LIBDIR_FROM_BIN /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${QELI2C_PRIVATE_LIBDIR})
file(RELATIVE_PATH QELI2C_DATADIR_FROM_BIN /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_DATADIR})
