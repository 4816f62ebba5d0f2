#ifndef WFILESYSTEM_TOOLS_WFS_VERB_H
#define WFILESYSTEM_TOOLS_WFS_VERB_H

// What a verb is, and which there are.

#include <Tools/wfs/Failure.h>

#include <CLI/CLI.hpp>

#include <functional>

namespace Wfs {

/// What a verb does once the command line is understood.
using Work = std::function<ExitStatus()>;

/// One verb of the program.
struct Verb {
    char const* name;
    char const* summary;
    char const* notes;                 ///< close the help: particulars, exit statuses, an example
    Work (*define)(CLI::App& options); ///< declares the options and arguments, which the work then finds filled in
};

extern Verb const CAT;
extern Verb const COPY;
extern Verb const DELETE;
extern Verb const LIST;
extern Verb const LOCK;
extern Verb const MKDIR;
extern Verb const MOVE;
extern Verb const PATH;
extern Verb const PIPE;
extern Verb const PUT;
extern Verb const RMDIR;
extern Verb const STAT;

} // namespace Wfs

#endif
