#ifndef WFILESYSTEM_TESTS_FAULTLOOP_H
#define WFILESYSTEM_TESTS_FAULTLOOP_H

/// \file
/// \brief Runs an operation again and again, each time with another of its system calls or allocations failing.
///
/// A row tells what to run and how it answers each failing call. Every run takes place in a world of its own; after it
/// nothing may be left behind: no descriptor, lock, memory, locker, mask, signal disposition or file that the row does
/// not tell of.

#include <DataType/Binary.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/NamedPipe.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace FaultLoop {

/// Entries of the scratch directory with their content, and "umask", "SIGPIPE", "cwd" and "module" where they are not
/// as usual.
using State = std::map<std::string, std::string>;

/// Where an operation runs: a module, and as working directory a scratch directory with the file "data". One at a time.
class World {
public:
    static constexpr char DATA[] = "first\nsecond";

    World();
    ~World();

    World(World const&) = delete;
    World& operator=(World const&) = delete;

    /// Adds the file "dir/a" and the empty directories "dir/sub" and "empty".
    void MakeDirectories();

    /// The wide absolute path of an entry, valid as long as the world.
    wchar_t const* Wide(std::string_view name);

    /// Adds to the result of the operation.
    void Say(std::string_view text);
    void Say(std::wstring_view text);
    void Say(long long number) { Say(std::to_string(number)); }

    /// Disconnects the client and destroys both sides, unobserved.
    void ClosePipes();

    State GetState() const;

    /// The text with the scratch directory's path as "{}", and "{fd}" and "*" for numbers and names that the system
    /// chooses.
    std::string Normal(std::string text) const;

    /// For servers: stops them after some tries, so that no run is endless.
    static bool Cancel();

    TestSupport::ScratchDirectory const scratch;
    std::optional<WFileSystem::Initializer> module{std::in_place};
    std::string result;
    // What a row's preparation opens; closed with the world.
    int fd = -1;
    int otherFd = -1;
    FILE* stream = nullptr;
    FILE* otherStream = nullptr;
    std::unique_ptr<WDataType::Binary> const buffer = WDataType::CreateBinary(8, nullptr);
    std::unique_ptr<WFileSystem::NamedPipeServer> server;
    std::unique_ptr<WFileSystem::NamedPipeClient> client;
    std::optional<TestSupport::Environment> temporary;

private:
    void MakeFile(std::string const& name, std::string_view content);

    std::list<std::wstring> widePaths_;
    mode_t formerMask_;
    TestSupport::WorkingDirectory const directory_{scratch.Path()};
};

/// Takes the place of an error number: the call transfers one byte, or half.
constexpr int SHORT = -1;

/// The call transfers one byte, and the next one fails with EIO. Tried where a row has a reaction for it.
constexpr int SHORT_THEN_EIO = -2;

enum class Effect {
    NONE,       ///< as if the call had not failed
    REPORT,     ///< a system-call report with the error number
    PLAIN,      ///< a report without one
    WRAPPED,    ///< a wrapped message that the error caused
    UNCAUSED,   ///< a wrapped message without cause
    PIPE_ERROR, ///< a NamedPipeError
    RESULT,     ///< the operation returns something else
    END         ///< the process is aborted
};

/// How an operation answers a call that fails.
struct Reaction {
    /// How the call begins, with its arguments: "fcntl(F_SETLK". "{}" stands for the scratch directory. With "#2" at
    /// the end only the second call of that beginning.
    std::string call;
    Effect effect;
    std::string
        text; ///< the report's first line, or the result; "{e}" stands for the system's words, "#{fd}" for a descriptor
    bool isRepeatedWhileInterrupted = false;
    bool isForOneFailure = false;  ///< would go on for ever if the failure did
    std::vector<int> errors{};     ///< which ones; empty: all
    std::optional<int> reported{}; ///< the error that is reported; none: the call's
    std::size_t leaks = 0;         ///< descriptors that stay open
    /// What of the state is not as before (after NONE: not as in a run without failure): "name=content", or "-name".
    std::vector<std::string> after{};
    std::string printed{}; ///< to standard error, where the row looks at it; "{e}" as above

    Reaction Repeated() &&;
    Reaction OnceOnly() &&;
    Reaction For(std::vector<int> numbers) &&;
    Reaction As(int number) &&;
    Reaction Leaks(std::size_t descriptors) &&;
    Reaction After(std::vector<std::string> changes) &&;
    Reaction Prints(std::string words) &&;
};

inline Reaction Passes(std::string call) {
    return {std::move(call), Effect::NONE, ""};
}
inline Reaction Reports(std::string call, std::string text) {
    return {std::move(call), Effect::REPORT, std::move(text)};
}
inline Reaction Wraps(std::string call, std::string text) {
    return {std::move(call), Effect::WRAPPED, std::move(text)};
}
inline Reaction WrapsNothing(std::string call, std::string text) {
    return {std::move(call), Effect::UNCAUSED, std::move(text)};
}
inline Reaction Returns(std::string call, std::string text) {
    return {std::move(call), Effect::RESULT, std::move(text)};
}
inline Reaction FailsThePipe(std::string call, std::string text) {
    return {std::move(call), Effect::PIPE_ERROR, std::move(text)};
}
inline Reaction Ends(std::string call) {
    return {std::move(call), Effect::END, ""};
}

struct Row {
    std::string name;
    std::function<void(World&)> prepare;   ///< unobserved; may be null
    std::function<void(World&)> operation; ///< destroys what it opens
    std::vector<Reaction> reactions;       ///< the first that fits a call counts; every call of the operation needs one
    /// What may be left when memory runs out, each as Reaction::after; beside all and nothing.
    std::vector<std::vector<std::string>> halfWay{};
    unsigned long fatalAllocations = 0; ///< so many of the last allocations end the process when they fail
    bool isPrinting = false;            ///< whether to look at what it prints to standard error
};

inline Row WithHalfWay(Row row, std::vector<std::vector<std::string>> halfWay) {
    row.halfWay = std::move(halfWay);
    return row;
}

/// What is done with each row: each call that the operation makes is made to fail, with each error it can give, once
/// and for ever; then each of its allocations. The output tells in how many runs something failed. Made with
/// INSTANTIATE_TEST_SUITE_P(Group, FaultLoopTest, ValuesIn(rows), NameOf).
class FaultLoopTest : public ::testing::TestWithParam<Row> {};

inline std::string NameOf(::testing::TestParamInfo<Row> const& row) {
    return row.param.name;
}

void PrintTo(Row const& row, std::ostream* stream);

} // namespace FaultLoop

#endif
