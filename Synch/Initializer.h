#ifndef WFILESYSTEM_SYNCH_INITIALIZER_H
#define WFILESYSTEM_SYNCH_INITIALIZER_H

/// \file
/// \brief Counted initialisation of the synchronisation layer.

#include <Defines/Export.h>

namespace WSynch {

/// Keeps the synchronisation layer initialised while it lives.
///
/// The layer stands on the system's own mutexes, which need no set-up: what is kept is the count.
///
/// \par Threads
///     Any thread.
class WFILESYSTEM_EXPORT Initializer {
public:
    Initializer() noexcept;
    Initializer(Initializer const&) = delete;
    Initializer& operator=(Initializer const&) = delete;
    ~Initializer();

    /// The number of live initializers.
    static long GetCount() noexcept;
};

} // namespace WSynch

#endif
