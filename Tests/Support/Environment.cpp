#include <Tests/Support/Environment.h>

#include <Tests/Support/Recorder.h>

#include <utility>

#include <cstdlib>

namespace TestSupport {
namespace {

void Set(std::string const& name, std::optional<std::string> const& value) {
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

} // namespace

Environment::Environment(std::string name, std::optional<std::string> const& value) : name_(std::move(name)) {
    Unobserved const unobserved;
    if (char const* const former = std::getenv(name_.c_str())) {
        former_ = former;
    }
    Set(name_, value);
}

Environment::~Environment() {
    Set(name_, former_);
}

} // namespace TestSupport
