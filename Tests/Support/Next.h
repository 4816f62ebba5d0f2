#ifndef WFILESYSTEM_TESTS_SUPPORT_NEXT_H
#define WFILESYSTEM_TESTS_SUPPORT_NEXT_H

/// \file
/// \brief The function that one of the program's own hides; not for tests.

#include <atomic>

#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

namespace TestSupport {

/// The system's, or a sanitizer's, definition of a function that the program defines itself. It is looked up at the
/// first call and needs no dynamic initialiser.
template <class Signature>
class Next {
public:
    constexpr explicit Next(char const* name) : name_(name) {}

    template <class... Arguments>
    auto operator()(Arguments... arguments) {
        void* function = function_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = Find();
            function_.store(function, std::memory_order_relaxed);
        }
        return reinterpret_cast<Signature*>(function)(arguments...);
    }

private:
    // A sanitizer that is linked into the program has its function under a second name; our definition hides the first.
    void* Find() const {
        char intercepted[64] = "__interceptor_";
        std::strncat(intercepted, name_, sizeof intercepted - sizeof "__interceptor_");
        if (void* const function = ::dlsym(RTLD_DEFAULT, intercepted)) {
            return function;
        }
        if (void* const function = ::dlsym(RTLD_NEXT, name_)) {
            return function;
        }
        std::abort();
    }

    char const* name_;
    std::atomic<void*> function_{nullptr};
};

} // namespace TestSupport

#endif
