#ifndef WFILESYSTEM_TESTS_SUPPORT_NAMEDPIPES_H
#define WFILESYSTEM_TESTS_SUPPORT_NAMEDPIPES_H

/// \file
/// \brief What the tests of the named pipes share.

#include <FileSystem/NamedPipe.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

namespace TestSupport {

/// The text of the NamedPipeError that the code throws, or "nothing is thrown".
template <class Code>
std::string NamedPipeErrorOf(Code code) {
    try {
        code();
    } catch (WFileSystem::NamedPipe::NamedPipeError const& error) {
        return error.GetMessage();
    }
    return "nothing is thrown";
}

/// What the code prints to standard error.
template <class Code>
std::string PrintedBy(Code code) {
    {
        Unobserved const unobserved;
        ::testing::internal::CaptureStderr();
    }
    code();
    Unobserved const unobserved;
    return ::testing::internal::GetCapturedStderr();
}

/// A callback that bounds what a test's server waits for: it answers true when the usual limit has passed since the
/// last restart.
class ServerTimeLimit {
public:
    static void Restart() { end = std::chrono::steady_clock::now() + waitLimit; }

    static bool IsOver() { return std::chrono::steady_clock::now() >= end; }

private:
    inline static std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + waitLimit;
};

/// A callback for servers, and a recorder: together they tell what was called in which order, and when the callback was
/// asked. One at a time.
///
/// \code
/// NamedPipeStory story(2);
/// server.Read(buffer, 4);
/// EXPECT_EQ(story.Tell(), "cancel read(4) sleep(1) cancel");
/// \endcode
class NamedPipeStory {
public:
    /// How often the callback may be asked; more fail the test.
    static constexpr std::size_t LONGEST = 1000;

    /// \param cancelAt the callback answers true from the so-manieth time on that it is asked, counted from 1
    explicit NamedPipeStory(std::size_t cancelAt = LONGEST) : cancelAt_(cancelAt) { current = this; }
    ~NamedPipeStory() {
        EXPECT_LT(askedAfter_.size(), LONGEST) << "The callback was asked too often.";
        current = nullptr;
    }

    NamedPipeStory(NamedPipeStory const&) = delete;
    NamedPipeStory& operator=(NamedPipeStory const&) = delete;

    /// The callback. Where no story is told, it only bounds the waiting.
    static bool Cancel() {
        if (current == nullptr) {
            return ServerTimeLimit::IsOver();
        }
        current->askedAfter_.push_back(current->recorder.All().size());
        return current->askedAfter_.size() >= current->cancelAt_;
    }

    /// The calls and the callback, in their order.
    /// \param show as for Recorder::Calls
    std::string Tell(unsigned int show = Recorder::ARGUMENTS) const {
        std::string text;
        auto const calls = recorder.Calls(show);
        auto asked = askedAfter_.begin();
        for (std::size_t i = 0; i <= calls.size(); ++i) {
            for (; asked != askedAfter_.end() && *asked == i; ++asked) {
                text += " cancel";
            }
            text += i < calls.size() ? ' ' + calls[i] : "";
        }
        return text.empty() ? text : text.substr(1);
    }

    Recorder recorder;

private:
    inline static NamedPipeStory* current = nullptr;

    std::size_t cancelAt_;
    std::vector<std::size_t> askedAfter_; // the number of calls before
};

/// Gives SIGPIPE a disposition for a scope; can tell whether it is still the same.
class SigpipeDisposition {
public:
    explicit SigpipeDisposition(void (*handler)(int), int flags = 0) : given_() {
        Unobserved const unobserved;
        given_.sa_handler = handler;
        given_.sa_flags = flags;
        sigemptyset(&given_.sa_mask);
        sigaddset(&given_.sa_mask, SIGUSR1);
        ::sigaction(SIGPIPE, &given_, &previous_);
    }
    ~SigpipeDisposition() {
        Unobserved const unobserved;
        ::sigaction(SIGPIPE, &previous_, nullptr);
    }

    SigpipeDisposition(SigpipeDisposition const&) = delete;
    SigpipeDisposition& operator=(SigpipeDisposition const&) = delete;

    /// Whether handler, mask and flags are what was given.
    bool IsInForce() const {
        struct sigaction const now = Now();
        return now.sa_handler == given_.sa_handler && Flags(now) == given_.sa_flags &&
               sigismember(&now.sa_mask, SIGUSR1) == 1;
    }

    static bool IsIgnored() { return Now().sa_handler == SIG_IGN; }

private:
    static struct sigaction Now() {
        Unobserved const unobserved;
        struct sigaction now = {};
        ::sigaction(SIGPIPE, nullptr, &now);
        return now;
    }

    // Without what the C library adds for itself.
    static int Flags(struct sigaction const& action) {
        constexpr int RESETHAND = static_cast<int>(SA_RESETHAND);
        return action.sa_flags &
               (SA_NOCLDSTOP | SA_NOCLDWAIT | SA_NODEFER | SA_ONSTACK | RESETHAND | SA_RESTART | SA_SIGINFO);
    }

    struct sigaction given_;
    struct sigaction previous_;
};

} // namespace TestSupport

#endif
