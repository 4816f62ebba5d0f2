#ifndef WFILESYSTEM_PDCHEADER_PDCSTAT_H
#define WFILESYSTEM_PDCHEADER_PDCSTAT_H

/// \file
/// \brief The system's `sys/stat.h`.

#include <sys/stat.h>
#include <sys/types.h>

#endif
