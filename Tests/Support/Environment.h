#ifndef WFILESYSTEM_TESTS_SUPPORT_ENVIRONMENT_H
#define WFILESYSTEM_TESTS_SUPPORT_ENVIRONMENT_H

/// \file
/// \brief Variables of the process's environment.

#include <optional>
#include <string>

namespace TestSupport {

/// An environment variable has a value, or none, while this object lives. Then it is again what it was. Not for use
/// beside other threads.
///
/// \code
/// TestSupport::Environment const directory("TMPDIR", scratch.Path());
/// TestSupport::Environment const mode("VUSK_FILE_MODE", std::nullopt);
/// \endcode
class Environment {
public:
    Environment(std::string name, std::optional<std::string> const& value);
    ~Environment();

    Environment(Environment const&) = delete;
    Environment& operator=(Environment const&) = delete;

private:
    std::string name_;
    std::optional<std::string> former_;
};

} // namespace TestSupport

#endif
