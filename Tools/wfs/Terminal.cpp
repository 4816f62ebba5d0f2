#include <Tools/wfs/Terminal.h>

#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace Wfs {
namespace {

std::string_view GetVariable(char const* name) noexcept {
    char const* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

bool CanShowProgress() noexcept {
    return ::isatty(STDERR_FILENO) == 1 && GetVariable("TERM") != "dumb";
}

bool CanShowColours() noexcept {
    return CanShowProgress() && GetVariable("NO_COLOR").empty();
}

} // namespace Wfs
