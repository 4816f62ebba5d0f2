#ifndef WFILESYSTEM_TESTS_SUPPORT_WAITING_H
#define WFILESYSTEM_TESTS_SUPPORT_WAITING_H

/// \file
/// \brief The bound on every wait of the tests.

#include <Tests/Support/Recorder.h>

#include <chrono>
#include <thread>

namespace TestSupport {

/// How long a test waits for something that must come: far longer than a slow machine needs. A test may change it
/// before it starts threads.
inline std::chrono::milliseconds waitLimit = std::chrono::seconds(20);

/// Asks again and again until the condition holds.
/// \return false when it did not hold within the limit
///
/// \code
/// ASSERT_TRUE(TestSupport::WaitUntil([&] { return started.load(); }));
/// \endcode
template <class Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds limit = waitLimit) {
    auto const end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        Unobserved const unobserved;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace TestSupport

#endif
