#ifndef WFILESYSTEM_PDCHEADER_PDCFCNTL_H
#define WFILESYSTEM_PDCHEADER_PDCFCNTL_H

/// \file
/// \brief The system's `fcntl.h`.

#include <fcntl.h>

#endif
