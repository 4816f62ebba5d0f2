#ifndef WFILESYSTEM_TESTS_SUPPORT_INTERPOSITION_H
#define WFILESYSTEM_TESTS_SUPPORT_INTERPOSITION_H

/// \file
/// \brief Between the interposed functions and the recorder; not for tests.

#include <Tests/Support/Recorder.h>

#include <atomic>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

namespace TestSupport {

/// How a function says that it failed.
enum class FailsWith { MINUS_ONE, NULL_POINTER, ERROR_NUMBER, NO_ITEMS, TIME_LEFT, NEVER };

/// The limit of a transfer that has none.
constexpr unsigned long UNLIMITED = std::numeric_limits<unsigned long>::max();

/// How many recorders live.
extern std::atomic<int> livingRecorders;

/// Whether the calls of this thread are TestSupport's own. Those of a signal handler that comes in between pass, too.
bool& IsUnobserved() noexcept;

/// Whether there is an interposed function of this name. Lives beside the functions, so that who uses a recorder links
/// them.
bool IsInterposed(std::string_view function);

/// One call on its way through the recorder that sees it.
class Observation {
public:
    Observation();

    /// Leaves the errno of the call, or where there was none the caller's.
    ~Observation();

    Observation(Observation const&) = delete;
    Observation& operator=(Observation const&) = delete;

    /// Whether a recorder sees the call.
    bool IsWanted() const { return state_ != nullptr; }

    /// Records the call, and makes it or what the rules put in its place.
    long Pass(Call call, FailsWith failsWith, std::function<long(unsigned long limit)> const& makeCall);

private:
    bool const previous_;
    int errno_;
    std::shared_ptr<RecorderState> state_;
};

/// Makes a call by `makeCall(limit)`, observed where a recorder wants it; `describe(call)` fills in the arguments.
template <class Result, class Describe, class MakeCall>
Result Observe(char const* function, FailsWith failsWith, Describe describe, MakeCall makeCall) {
    if (livingRecorders.load(std::memory_order_relaxed) != 0 && !IsUnobserved()) {
        Observation observation;
        if (observation.IsWanted()) {
            Call call;
            call.function = function;
            describe(call);
            // A result is a number or a pointer; both fit into a long and back.
            // NOLINTNEXTLINE(performance-no-int-to-ptr)
            return (Result)observation.Pass(
                std::move(call), failsWith, [&](unsigned long limit) { return (long)makeCall(limit); });
        }
    }
    return makeCall(UNLIMITED);
}

} // namespace TestSupport

#endif
