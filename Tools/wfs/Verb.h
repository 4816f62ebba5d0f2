#ifndef WFILESYSTEM_TOOLS_WFS_VERB_H
#define WFILESYSTEM_TOOLS_WFS_VERB_H

// What a verb is, and which there are.

#include <Tools/wfs/Failure.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <initializer_list>
#include <string>

namespace Wfs {

/// What a verb does once the command line is understood.
using Work = std::function<ExitStatus()>;

/// One verb of the program, or of another verb.
///
/// Help, manual page and completion are made of this and of what `define` declares, by these conventions:
/// - The notes are paragraphs with an empty line between them, of which one may begin with a label: "Exit status: ".
///   Lines that begin with two spaces stay as they are.
/// - The name of an argument tells what it is: COMMAND, DIRECTORY or VERB; any other is a path.
/// - The text of an option's value tells the choices, as in "posix|windows".
struct Verb {
    char const* name;
    char const* summary;
    char const* notes;                 ///< close the help: particulars, exit statuses, an example
    Work (*define)(CLI::App& options); ///< declares the options and arguments, which the work then finds filled in
};

/// Declares a verb but for its options.
CLI::App& AddVerb(CLI::App& parent, char const* name, char const* summary, char const* notes);

/// Declares verbs, of which one is to be given.
/// \return does the work of the one that was given
/// \throws CLI::ParseError when the work is called, and none was given
Work AddVerbs(CLI::App& parent, std::initializer_list<Verb> verbs);

/// The name of the verb with those it belongs to: "wfs pipe call".
std::string GetFullName(CLI::App const& verb);

/// The help.
std::string GetHelp(CLI::App const& verb);

/// How the verb is called: "wfs cat [OPTIONS] PATH...".
std::string GetUsage(CLI::App const& verb);

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
