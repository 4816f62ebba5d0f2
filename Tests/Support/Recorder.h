#ifndef WFILESYSTEM_TESTS_SUPPORT_RECORDER_H
#define WFILESYSTEM_TESTS_SUPPORT_RECORDER_H

/// \file
/// \brief Observes the system calls of the code under test, and makes them fail.
///
/// A test program that links TestSupport defines the system's functions itself (SystemCalls.cpp) and passes them on.
/// While no Recorder lives that costs one relaxed load a call.
///
/// \code
/// TEST(FileTest, CloseIsRepeatedWhileInterrupted) {
///     int const fd = ::open("/dev/null", O_RDONLY);
///     TestSupport::Recorder recorder;
///     recorder.On("close").First(2).FailWithoutCalling(EINTR);
///     EXPECT_EQ(WPDCHeader::close(fd), 0);
///     EXPECT_EQ(recorder.Names(), "close close close");
/// }
/// \endcode
///
/// What is seen: the calls that the program and its shared libraries make through the plain names (`open`, not
/// `open64`), also when they were compiled with `_FORTIFY_SOURCE`. Not seen: what the C library calls inside itself
/// (the `read` within an `fread`), calls on the streams `stdout` and `stderr` (the test framework writes there), calls
/// made by TestSupport and by the functions given to a rule, and calls of a process made by `fork`, which may make a
/// recorder of its own.

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <csignal>
#include <cstdio>
#include <ctime>

#include <fcntl.h>

namespace TestSupport {

struct RecorderState;
struct RuleState;

/// One observed call. Which fields are set depends on the function.
struct Call {
    std::string function;
    int fd = -1;                  ///< the descriptor, or that of the stream
    bool hasDescriptor = false;   ///< whether the function works on a descriptor or stream
    std::string path;             ///< the path, pattern or environment variable; of `tempnam` the directory
    std::string secondPath;       ///< the target of `rename`, the prefix of `tempnam`
    int flags = 0;                ///< of `open` and `glob`
    unsigned int mode = 0;        ///< of `open` with `O_CREAT`, `mkdir`, `chmod`, `umask`, `mkfifo`, `access`
    int command = 0;              ///< of `fcntl`
    struct flock lock = {};       ///< of `fcntl` with a lock command, as passed in
    unsigned long size = 0;       ///< bytes; of `fread` and `fwrite` items; of `sleep` seconds
    unsigned long itemSize = 1;   ///< of `fread` and `fwrite`
    long long offset = 0;         ///< of `lseek` and `fseeko`; of `ftruncate` the length
    int whence = 0;               ///< of `lseek` and `fseeko`
    unsigned int owner = 0;       ///< of `chown`
    unsigned int group = 0;       ///< of `chown`
    struct sigaction action = {}; ///< of `sigaction`, as passed in
    timespec deadline = {};       ///< of `pthread_cond_timedwait`
    /// What the call reads or fills: the buffer, `struct stat`, lock record, `timeval`, `timespec`, mutex, the time
    /// left to sleep...
    void* data = nullptr;
    FILE* stream = nullptr; ///< of the stream functions
    std::string details;    ///< the arguments but for the descriptor, as they are shown
    long result = 0;        ///< pointers as numbers; 0 for functions without a result
    int error = 0;          ///< the error number of a call that failed, otherwise 0
};

/// Records the calls from its construction to Stop() or its end, and applies rules to them.
///
/// Recorders nest: only the innermost one of a thread sees a call. A recorder of the calling thread comes before one of
/// all threads.
class Recorder {
public:
    enum class Threads {
        CALLING, ///< only calls of the thread that made the recorder
        ALL      ///< calls of every thread; one such recorder at a time
    };

    /// Which functions are recorded: names with a space between them. Rules also work on functions that are not
    /// recorded.
    static char const* const FILE_CALLS;   ///< descriptors, paths, streams, sigaction, the sleeping functions (default)
    static char const* const THREAD_CALLS; ///< pthread_mutex_..., pthread_cond_..., gettimeofday
    /// Both, and getenv. clock_gettime, which every wait of a test calls as well, and strerror_r are recorded where they
    /// are named only.
    static char const* const EVERY_CALL;

    class Rule;

    explicit Recorder(std::string_view functions = FILE_CALLS, Threads threads = Threads::CALLING);

    /// Stops. A rule that never applied (of a script: that was not used up) fails the test, unless it is Optional().
    ~Recorder();

    Recorder(Recorder const&) = delete;
    Recorder& operator=(Recorder const&) = delete;

    /// Begins a rule for calls of a function; "*" stands for each recorded function that can fail. Of several rules for
    /// a call the last made applies. Rules may be made at any time.
    Rule On(std::string_view function);

    /// Ends recording and rules. What was recorded can still be looked at.
    void Stop();

    /// The names of the calls in the order in which they began: "open fcntl close".
    std::string Names() const;

    /// What Calls() shows beside function and arguments. The values can be added.
    enum Show : unsigned int {
        ARGUMENTS = 0,   ///< "fcntl(F_SETLKW, F_RDLCK 0+0)"; a lock record's own process id appears as "self"
        DESCRIPTORS = 1, ///< "fcntl(3, F_SETLKW, F_RDLCK 0+0)"
        RESULTS = 2      ///< "fcntl(F_SETLKW, F_RDLCK 0+0) = -1 EINTR"; pointers appear as "pointer"
    };

    /// The calls with their arguments, paths in quotes, one string a call.
    std::vector<std::string> Calls(unsigned int show = ARGUMENTS) const;

    /// The recorded calls themselves.
    std::vector<Call> All() const;

    /// The n-th recorded call of a function, from 1. Where there is none the test fails.
    Call Find(std::string_view function, unsigned int n = 1) const;

    /// How many calls of the function were recorded.
    unsigned int Count(std::string_view function) const;

    /// How often rules applied.
    unsigned int Interventions() const;

    /// Waits until so many calls of the function have begun; after the usual limit of waiting the test fails.
    /// With Threads::ALL this tells that another thread has come to a call that blocks.
    bool WaitForCall(std::string_view function, unsigned int count = 1) const;

    /// Forgets the calls so far.
    void Clear();

private:
    std::shared_ptr<RecorderState> state_;
};

/// Which calls, and then what becomes of them: `recorder.On("fcntl").Command(F_SETLK).Nth(2).Fail(EINTR);`
///
/// The first group of functions narrows down the calls; one of the second group completes the rule.
class [[nodiscard]] Recorder::Rule {
public:
    /// Only `fcntl` with this command.
    Rule Command(int command);
    /// Only calls that the function says yes to; it sees the call before it is made.
    Rule Where(std::function<bool(Call const&)> condition);
    /// Only the n-th of these calls, from 1, counted from now on.
    Rule Nth(unsigned int n);
    /// Only the first so many of these calls.
    Rule First(unsigned int count);
    /// Only the n-th of these calls and all later ones.
    Rule From(unsigned int n);
    /// The rule need not apply; fault loops end when theirs no longer does.
    Rule Optional();

    /// The call fails with the error number: the result is -1, a null pointer, EOF, no items with the stream's error
    /// indicator set, or for the functions that return their error the number itself. The function is not called,
    /// except that `close` and `fclose` do close. A failing `nanosleep` has not slept, a failing `sleep` returns its
    /// argument.
    /// \throws std::invalid_argument for `umask`, `getenv`, `globfree` and `strerror_r`, which can't fail; so do the next
    ///     three functions
    void Fail(int error);
    /// As Fail, but `close` and `fclose` are not called either.
    void FailWithoutCalling(int error);
    /// The function is called, its effects stay, and the call fails all the same.
    void CallThenFail(int error);
    /// As CallThenFail, but `read`, `write`, `fread` and `fwrite` transfer only half, rounded down.
    void HalfThenFail(int error);
    /// The result is returned without a call; errno stays as it was. A pointer can only be null.
    void Return(long result);
    /// The calls return these results in turn without being made; a `read` leaves its buffer alone. Each -1 sets errno
    /// to `error`. Calls after the last result are made.
    void Script(std::initializer_list<long> results, int error = 0);
    /// `read` and `write` transfer so many bytes at most, `fread` and `fwrite` so many items.
    void Limit(unsigned long count);
    /// The function is called after the test's own.
    void Before(std::function<void(Call const&)> action);
    /// The test's own function comes after the call and can look at or change what the call filled in and the result.
    void After(std::function<void(Call&)> action);
    /// The test's own function is called in its place; it returns the result and may set errno.
    void Instead(std::function<long(Call const&)> action);

private:
    friend class Recorder;

    Rule(std::shared_ptr<RecorderState> state, std::string_view function);

    void RefuseUnlessItCanFail() const;

    template <class Action>
    void Complete(Action action);

    std::shared_ptr<RecorderState> state_;
    std::shared_ptr<RuleState> rule_;
    bool isOptional_ = false;
};

/// Calls made while it lives, by its thread, are neither recorded nor changed: for preparations in the middle of a
/// test.
class Unobserved {
public:
    Unobserved() noexcept;
    ~Unobserved();

    Unobserved(Unobserved const&) = delete;
    Unobserved& operator=(Unobserved const&) = delete;

private:
    bool previous_;
};

} // namespace TestSupport

#endif
