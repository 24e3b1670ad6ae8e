// Standard files that the caller has closed.
#ifndef QELI2C_TOOLS_STANDARD_FILES_H
#define QELI2C_TOOLS_STANDARD_FILES_H

#include <fcntl.h>

// First of all in a program. The next file opened would take the place of a closed standard file,
// and a device would get what is meant for a person. What is put there reads as empty and cannot be
// written, so that lost results are told.
inline void fill_closed_standard_files()
{
    for (int fd = 0; fd <= 2; fd++) {
        if (fcntl(fd, F_GETFD) < 0)
            (void)open("/dev/null", O_RDONLY); // the lowest free number is this one
    }
}

#endif
