// Standard output and standard error put aside.
#include "muted.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace tool
{

Muted::Muted(const Options &options)
    : out_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      error_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
{
    std::cout.flush();
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (!options.verbose)
        dup2(nowhere, STDERR_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    close(nowhere);
}

Muted::~Muted()
{
    const int error = errno;
    std::fflush(stdout);
    dup2(out_, STDOUT_FILENO);
    dup2(error_, STDERR_FILENO);
    close(out_);
    close(error_);
    errno = error;
}

} // namespace tool
