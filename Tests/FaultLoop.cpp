#include <Tests/FaultLoop.h>

#include <Base/Exception.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <FileSystem/ReadableFile.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/CallText.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <limits>
#include <new>

#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FaultLoop {

using TestSupport::Allocations;
using TestSupport::Call;
using TestSupport::Recorder;
using TestSupport::Unobserved;

namespace {

constexpr mode_t USUAL_MASK = 002;
constexpr unsigned int USUAL_MODE = 0664;
constexpr unsigned int FOR_EVER = std::numeric_limits<unsigned int>::max();
// What WPDCHeader::close calls at most, less one.
constexpr unsigned int REPEATED_CLOSES = 9;

int tries = 0;

std::string Replaced(std::string text, std::string const& from, std::string const& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

bool BeginsWith(std::string const& text, std::string const& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

} // namespace

// The world

World::World() : formerMask_(::umask(USUAL_MASK)) {
    tries = 0;
    std::signal(SIGPIPE, SIG_DFL);
    result.reserve(4096);
    MakeFile("data", DATA);
}

World::~World() {
    ClosePipes();
    for (FILE* const open : {stream, otherStream}) {
        if (open != nullptr) {
            std::fclose(open);
        }
    }
    for (int const open : {fd, otherFd}) {
        if (open != -1) {
            ::close(open);
        }
    }
    std::signal(SIGPIPE, SIG_DFL);
    ::umask(formerMask_);
}

void World::MakeFile(std::string const& name, std::string_view content) {
    TestSupport::WriteFile(scratch / name, content);
    ::chmod((scratch / name).c_str(), USUAL_MODE);
}

void World::MakeDirectories() {
    TestSupport::MakeDirectory(scratch / "dir");
    TestSupport::MakeDirectory(scratch / "dir/sub");
    TestSupport::MakeDirectory(scratch / "empty");
    MakeFile("dir/a", "a");
}

wchar_t const* World::Wide(std::string_view name) {
    Unobserved const unobserved;
    return widePaths_.emplace_back(scratch.Wide(name)).c_str();
}

void World::Say(std::string_view text) {
    Unobserved const unobserved;
    result += '[' + Normal(std::string(text)) + ']';
}

void World::Say(std::wstring_view text) {
    Unobserved const unobserved;
    Say(TestSupport::Narrow(text));
}

void World::ClosePipes() {
    Unobserved const unobserved;
    if (client != nullptr) {
        client->Disconnect();
        client.reset();
    }
    server.reset();
}

State World::GetState() const {
    Unobserved const unobserved;
    State state;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(scratch.Path())) {
        std::string name = entry.path().string().substr(scratch.Path().size() + 1);
        if (BeginsWith(name, "temp.")) {
            name = "temp.*"; // the rest is the system's choice
        }
        struct stat status;
        if (::lstat(entry.path().c_str(), &status) != 0) {
            continue;
        }
        if (!S_ISREG(status.st_mode)) {
            state[name] = S_ISDIR(status.st_mode) ? "/" : "|";
            continue;
        }
        constexpr time_t LONG_AGO = 2000;
        std::string const age = status.st_mtime < LONG_AGO ? " old" : "";
        unsigned int const mode = status.st_mode & 07777;
        state[name] = TestSupport::ReadFile(entry.path().string()) + age +
                      (mode != USUAL_MODE ? ' ' + TestSupport::CallText::Octal(mode) : "");
    }
    mode_t const mask = ::umask(0);
    ::umask(mask);
    if (mask != USUAL_MASK) {
        state["umask"] = TestSupport::CallText::Octal(mask);
    }
    struct sigaction action;
    ::sigaction(SIGPIPE, nullptr, &action);
    if (action.sa_handler != SIG_DFL) {
        state["SIGPIPE"] = "ignored";
    }
    std::string const directory = Normal(std::filesystem::current_path().string());
    if (directory != "{}") {
        state["cwd"] = directory;
    }
    if (WFileSystem::gModuleMainPtr.Get() == nullptr) {
        state["module"] = "none";
    }
    return state;
}

std::string World::Normal(std::string text) const {
    text = Replaced(std::move(text), scratch.Path(), "{}");
    constexpr std::size_t CHOSEN = 6;
    for (std::string const beginning : {"{}/temp.", "file #", "for #"}) {
        std::size_t const at = text.find(beginning);
        if (at != std::string::npos) {
            bool const isName = beginning.front() == '{';
            std::size_t const end = isName ? at + beginning.size() + CHOSEN : text.find('.', at);
            text.replace(at + beginning.size(), end - at - beginning.size(), isName ? "*" : "{fd}");
        }
    }
    return text;
}

bool World::Cancel() {
    constexpr int ENOUGH = 5;
    return ++tries > ENOUGH;
}

// Rows

Reaction Reaction::Repeated() && {
    isRepeatedWhileInterrupted = true;
    return std::move(*this);
}

Reaction Reaction::OnceOnly() && {
    isForOneFailure = true;
    return std::move(*this);
}

Reaction Reaction::For(std::vector<int> numbers) && {
    errors = std::move(numbers);
    return std::move(*this);
}

Reaction Reaction::As(int number) && {
    reported = number;
    return std::move(*this);
}

Reaction Reaction::Leaks(std::size_t descriptors) && {
    leaks = descriptors;
    return std::move(*this);
}

Reaction Reaction::After(std::vector<std::string> changes) && {
    after = std::move(changes);
    return std::move(*this);
}

Reaction Reaction::Prints(std::string words) && {
    printed = std::move(words);
    return std::move(*this);
}

// The loops

namespace {

constexpr char FUNCTIONS[] =
    "open close read write lseek fstat stat fsync ftruncate fcntl rename unlink rmdir chdir mkdir chmod mkfifo chown "
    "utime "
    "access getcwd tempnam glob fopen fclose fread fwrite fgets fflush fseeko ftello sigaction sleep nanosleep "
    "pthread_mutex_init pthread_cond_init pthread_mutex_lock";

struct Errors {
    char const* call;
    std::vector<int> numbers;
};

/// The errors that a call can give; the first line that fits counts.
std::vector<int> const& ErrorsOf(std::string const& call) {
    static std::vector<int> const path = {EACCES, EIO, ELOOP, ENOSPC, EDQUOT, EROFS, ESTALE, ENOMEM};
    static std::vector<int> const opening = {EINTR,  EACCES, EIO,    ELOOP, EMFILE, ENFILE,
                                             ENOMEM, ENOSPC, EDQUOT, EROFS, ESTALE};
    static Errors const table[] = {
        {"open(\"{}/pipe.ServerWriter\", O_WRONLY|O_NONBLOCK", {EINTR, EACCES, EMFILE, ENFILE, ENXIO}},
        {"open(", opening},
        {"fopen(", opening},
        {"close(", {EINTR, EIO, ENOSPC, EDQUOT}},
        {"fclose(", {EINTR, EIO, ENOSPC, EDQUOT}},
        {"read(", {SHORT, SHORT_THEN_EIO, EINTR, EIO, EAGAIN, ESTALE, ENOMEM}},
        {"write(", {SHORT, SHORT_THEN_EIO, EINTR, EIO, EAGAIN, ENOSPC, EDQUOT, EFBIG, EPIPE, ESTALE}},
        {"lseek(", {EINVAL, EOVERFLOW, ESPIPE}},
        {"fcntl(F_SETLK", {EINTR, EDEADLK, ENOLCK, EACCES, EAGAIN, ENOTSUP, EIO, ESTALE}},
        {"fcntl(", {EINTR, EBADF}},
        {"stat(", {EINTR, EACCES, EIO, ELOOP, ENOMEM, ESTALE}},
        {"fstat(", {EINTR, EIO, ENOMEM, EOVERFLOW, ESTALE}},
        {"fsync(", {EINTR, EIO, ENOSPC, EDQUOT, EROFS}},
        {"ftruncate(", {EINTR, EIO, EFBIG, EROFS, ESTALE}},
        {"access(", {EACCES, EIO, ELOOP, EROFS}},
        {"getcwd(", {EACCES, ENOENT, ENOMEM, ERANGE}},
        {"tempnam(", {EEXIST, ENOMEM}},
        {"glob(", {GLOB_NOSPACE, GLOB_ABORTED}},
        {"fread(", {EINTR, EIO, ESTALE}},
        {"fgets(", {EINTR, EIO, ESTALE}},
        {"fwrite(", {EINTR, EIO, ENOSPC, EDQUOT, EFBIG}},
        {"fflush(", {EINTR, EIO, ENOSPC, EDQUOT, EFBIG}},
        {"fseeko(", {EINVAL, EIO, ENOSPC}},
        {"ftello(", {EOVERFLOW, ESPIPE}},
        {"sigaction(", {EINVAL}},
        {"sleep(", {EINTR}},
        {"nanosleep(", {EINTR}},
        {"pthread_mutex_lock(", {EAGAIN, EINVAL}},
        {"pthread_", {EAGAIN, ENOMEM}},
        {"", path}};
    return std::find_if(
               std::begin(table), std::end(table), [&](Errors const& line) { return BeginsWith(call, line.call); })
        ->numbers;
}

/// What every operation does.
std::vector<Reaction> const& UsualReactions() {
    static std::vector<Reaction> const usual = {
        Passes("close(").Repeated(), Passes("fclose("), Passes("fcntl(F_SETFD").Repeated(), Passes("sleep("),
        Passes("fcntl(F_SETLK, F_UNLCK").Repeated()};
    return usual;
}

std::string
ShownMessage(std::type_info const& type, int domain, int id, std::string const& cause, std::string const& text) {
    return TestSupport::NameOf(type) + " (" + std::to_string(domain) + ", " + std::to_string(id) + ", caused by " +
           cause + "): " + text;
}

std::string Shown(WBase::Message const& message) {
    auto const cause = message.FindID(WBase::MESSAGE_DOMAIN_ERRNO);
    return ShownMessage(
        typeid(message), message.GetDomain(), message.GetID(), cause ? std::to_string(*cause) : "nothing",
        TestSupport::Narrow(message.GetMessage()));
}

struct Outcome {
    std::string text;
    std::string printed;
    State before;
    State after;
    std::size_t leaks = 0;
    unsigned long heldBlocks = 0;
    unsigned long allocations = 0;
    bool hasAllocationFailed = false;
    std::vector<Call> calls;
    std::vector<std::string> callTexts;
    std::string debris; ///< what is wrong whatever the row says
};

/// Closes what was opened since.
std::size_t CloseLeaks(std::vector<int> const& before) {
    std::size_t leaks = 0;
    for (int const fd : TestSupport::OpenDescriptors()) {
        if (!std::binary_search(before.begin(), before.end(), fd)) {
            ::close(fd);
            ++leaks;
        }
    }
    return leaks;
}

bool IsLocked(std::string const& path) {
#ifdef F_OFD_GETLK
    // A lock of an open file description is refused by those of the own process, too. No child is needed to ask.
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    int const fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    bool const isLocked = ::fcntl(fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
    ::close(fd);
    return isLocked;
#else
    return !TestSupport::RecordLockSeenByOthers(path).empty();
#endif
}

/// Whether the module knows nothing of the file any more, and lets it be opened without waiting.
std::string WhyNotAtRest(std::string const& path) {
    int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    auto locker = WFileSystem::gModuleMainPtr.Get()->GetInprocessFileLocker(L"", fd);
    bool const isRegistered = locker.Get()->GetReferenceCount() != 1;
    locker = WBase::ReturnPtrI<WFileSystem::InprocessFileLocker>();
    ::close(fd);
    if (isRegistered) {
        return path + " is still registered. ";
    }
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_wait").Optional().Fail(EDEADLK); // rather than waiting for ever
    try {
        WFileSystem::OpenReadableFile(TestSupport::Widen(path).c_str());
    } catch (WBase::Message const& failure) {
        return path + " can't be opened again: " + failure.what();
    }
    return "";
}

std::string FindDebris(World& world) {
    std::string debris;
    std::vector<std::string> files;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(world.scratch.Path())) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path().string());
        }
    }
    for (std::string const& path : files) {
        debris += IsLocked(path) ? path + " is still locked. " : "";
    }
    if (!world.module) {
        world.module.emplace();
    }
    for (std::string const& path : files) {
        debris += WhyNotAtRest(path);
    }
    return debris;
}

/// Keeps a run from what no test may do.
void Guard(Recorder& recorder, std::string const& scratch) {
    for (char const* const function : {"unlink", "rmdir", "rename"}) {
        recorder.On(function)
            .Where([scratch](Call const& call) { return !BeginsWith(call.path, scratch + '/'); })
            .Optional()
            .Instead([](Call const& call) {
                ADD_FAILURE() << call.function << " of " << call.path;
                errno = EPERM;
                return -1L;
            });
    }
    // A failed read that becomes a write of as many bytes as 32 bits can say: nothing lies behind the buffer.
    recorder.On("write")
        .Where([](Call const& call) { return call.size == std::numeric_limits<unsigned int>::max(); })
        .Optional()
        .Instead([](Call const&) {
            errno = EFAULT;
            return -1L;
        });
}

std::string TextOf(Call const& call) {
    return call.function + '(' + call.details;
}

void Operate(Row const& row, World& world, std::string& text) {
    try {
        errno = 0;
        row.operation(world);
        Unobserved const unobserved;
        text = "returns " + world.result;
    } catch (WBase::Message const& message) {
        Unobserved const unobserved;
        text = world.Normal(Shown(message));
    } catch (WFileSystem::NamedPipe::NamedPipeError const& error) {
        Unobserved const unobserved;
        text = std::string("NamedPipeError: ") + error.GetMessage();
    } catch (std::bad_alloc const&) {
        text = "std::bad_alloc";
    }
}

/// One run. `arrange` makes the rules; the n-th allocation fails unless it is 0.
Outcome Run(Row const& row, std::function<void(Recorder&, World&)> const& arrange, unsigned long failingAllocation) {
    World world;
    if (row.prepare) {
        row.prepare(world);
    }
    Outcome outcome;
    outcome.before = world.GetState();
    if (row.isPrinting) {
        ::testing::internal::CaptureStderr();
    }
    auto const descriptors = TestSupport::OpenDescriptors();
    {
        Recorder recorder(FUNCTIONS);
        recorder.On("fsync").Optional().Return(0); // a device may be slow
        arrange(recorder, world);
        Guard(recorder, world.scratch.Path());
        Allocations allocations;
        if (failingAllocation != 0) {
            allocations.FailNth(failingAllocation);
        }
        Operate(row, world, outcome.text);
        outcome.allocations = allocations.Stop();
        outcome.heldBlocks = allocations.GetHeld();
        outcome.hasAllocationFailed = allocations.HasFailed();
        recorder.Stop();
        outcome.calls = recorder.All();
    }
    for (Call const& call : outcome.calls) {
        outcome.callTexts.push_back(world.Normal(TextOf(call)));
    }
    outcome.after = world.GetState();
    outcome.debris = FindDebris(world);
    outcome.leaks = CloseLeaks(descriptors);
    if (row.isPrinting) {
        outcome.printed = world.Normal(::testing::internal::GetCapturedStderr());
    }
    return outcome;
}

Outcome RunUndisturbed(Row const& row) {
    Outcome clean = Run(
        row, [](Recorder&, World&) {}, 0);
    EXPECT_EQ(clean.text.rfind("returns ", 0), 0U) << clean.text;
    EXPECT_EQ(clean.debris, "");
    EXPECT_EQ(clean.leaks, 0U);
    EXPECT_EQ(clean.heldBlocks, 0U);
    return clean;
}

/// A run that must end the process. What it leaves goes with its own directory.
void ExpectEnd(std::function<void()> const& run) {
    TestSupport::ScratchDirectory const scratch;
    TestSupport::Environment const temporary("TMPDIR", scratch.Path());
    TestSupport::Child child([&](TestSupport::Child::Parent&) { run(); });
    EXPECT_EQ(child.Wait(), -SIGABRT);
}

State Changed(State state, std::vector<std::string> const& changes) {
    for (std::string const& change : changes) {
        if (change.front() == '-') {
            state.erase(change.substr(1));
        } else {
            std::size_t const equals = change.find('=');
            state[change.substr(0, equals)] = change.substr(equals + 1);
        }
    }
    return state;
}

/// The error number that the system gives.
int NumberOf(int error) {
    return error == SHORT ? 0 : error == SHORT_THEN_EIO ? EIO : error;
}

std::string ExpectedText(Reaction const& reaction, int error, Outcome const& clean) {
    int const number = reaction.reported.value_or(NumberOf(error));
    std::string const words = TestSupport::Narrow(TestSupport::ErrorDescription(number));
    std::string const text = Replaced(reaction.text, "{e}", words);
    std::type_info const& report = typeid(WBase::ExceptionImpl<WBase::Message>);
    std::type_info const& message = typeid(WBase::Message);
    constexpr int LIBRARY_ID = 0x12345678;
    switch (reaction.effect) {
    case Effect::REPORT:
        return ShownMessage(report, WBase::MESSAGE_DOMAIN_UNKNOWN, number, "nothing", text + '\n' + words);
    case Effect::PLAIN:
        return ShownMessage(report, WBase::MESSAGE_DOMAIN_UNKNOWN, -1, "nothing", text);
    case Effect::WRAPPED:
        return ShownMessage(
            message, WBase::MESSAGE_DOMAIN_SERVER, LIBRARY_ID, std::to_string(number), text + '\n' + words);
    case Effect::UNCAUSED:
        return ShownMessage(message, WBase::MESSAGE_DOMAIN_SERVER, LIBRARY_ID, "nothing", text);
    case Effect::PIPE_ERROR:
        return "NamedPipeError: " + text;
    case Effect::RESULT:
        return "returns " + text;
    default:
        return clean.text;
    }
}

/// Which call of those that begin alike: the place in the sequence, from 1.
unsigned int PlaceAmong(std::vector<std::string> const& calls, std::size_t index, std::string const& beginning) {
    return static_cast<unsigned int>(std::count_if(
        calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(index) + 1,
        [&](std::string const& call) { return BeginsWith(call, beginning); }));
}

std::string BeginningOf(Reaction const& reaction) {
    return reaction.call.substr(0, reaction.call.find('#'));
}

bool IsForOneCall(Reaction const& reaction) {
    return reaction.call.find('#') != std::string::npos;
}

bool Fits(Reaction const& reaction, std::vector<std::string> const& calls, std::size_t index, int error) {
    auto const& errors = reaction.errors;
    bool const isForAll = errors.empty() && error != SHORT_THEN_EIO;
    if (!isForAll && std::find(errors.begin(), errors.end(), error) == errors.end()) {
        return false;
    }
    std::string const beginning = BeginningOf(reaction);
    return BeginsWith(calls[index], beginning) &&
           (!IsForOneCall(reaction) ||
            std::to_string(PlaceAmong(calls, index, beginning)) == reaction.call.substr(beginning.size() + 1));
}

Reaction const* FindReaction(Row const& row, std::vector<std::string> const& calls, std::size_t index, int error) {
    for (auto const* const reactions : {&row.reactions, &UsualReactions()}) {
        for (Reaction const& reaction : *reactions) {
            if (Fits(reaction, calls, index, error)) {
                return &reaction;
            }
        }
    }
    return nullptr;
}

/// A call, how it goes wrong, and how often.
struct Fault {
    Call call;
    std::string beginning;
    unsigned int first;
    unsigned int times;
    int error;
    unsigned long limit; ///< of a short transfer
};

/// A rule for so many calls, from the first on that the fault is about.
Recorder::Rule RuleFor(Recorder& recorder, World& world, Fault const& fault, unsigned int first, unsigned int times) {
    return recorder.On(fault.call.function)
        .Where([&world, &fault, first, times, seen = 0U](Call const& call) mutable {
            return BeginsWith(world.Normal(TextOf(call)), fault.beginning) && ++seen >= first && seen - first < times;
        })
        .Optional();
}

void Inject(Recorder& recorder, World& world, Fault const& fault) {
    auto rule = RuleFor(recorder, world, fault, fault.first, fault.times);
    if (fault.error == SHORT) {
        rule.Limit(fault.limit);
    } else if (fault.error == SHORT_THEN_EIO) {
        rule.Limit(fault.limit);
        RuleFor(recorder, world, fault, fault.first + 1, 1).Fail(EIO);
    } else if (fault.call.function == "close" && fault.error == EINTR) {
        rule.FailWithoutCalling(EINTR); // the library takes the file for open still
    } else {
        rule.Fail(fault.error);
    }
}

void ExpectReaction(Row const& row, Reaction const& reaction, Fault const& fault, Outcome const& clean) {
    SCOPED_TRACE(
        TextOf(fault.call) + ", call " + std::to_string(fault.first) + " of \"" + fault.beginning + "\", " +
        (fault.error == SHORT            ? "short"
         : fault.error == SHORT_THEN_EIO ? "short, then EIO"
                                         : TestSupport::CallText::ErrorName(fault.error)) +
        (fault.times == FOR_EVER ? " for ever" : ", times: " + std::to_string(fault.times)));
    auto const run = [&] {
        return Run(
            row, [&](Recorder& recorder, World& world) { Inject(recorder, world, fault); }, 0);
    };
    bool const isRepeated = fault.error == EINTR && reaction.isRepeatedWhileInterrupted;
    if (reaction.effect == Effect::END && !isRepeated) {
        ExpectEnd(run);
        return;
    }
    Reaction const expected = isRepeated ? Passes(reaction.call) : reaction;
    Outcome const actual = run();
    EXPECT_EQ(actual.text, ExpectedText(expected, fault.error, clean));
    EXPECT_EQ(
        actual.printed,
        Replaced(expected.printed, "{e}", TestSupport::Narrow(TestSupport::ErrorDescription(NumberOf(fault.error)))));
    EXPECT_EQ(actual.after, Changed(expected.effect == Effect::NONE ? clean.after : actual.before, expected.after));
    EXPECT_EQ(actual.leaks, expected.leaks);
    EXPECT_EQ(actual.heldBlocks, 0U);
    EXPECT_EQ(actual.debris, "");
}

/// Fails each call that the operation makes, with each error it can give, once and for ever.
/// \return how many runs had a failure
unsigned long FailEachCall(Row const& row) {
    Outcome const clean = RunUndisturbed(row);
    unsigned long runs = 0;
    auto const expectReaction = [&](Reaction const& reaction, Fault const& fault) {
        ExpectReaction(row, reaction, fault, clean);
        ++runs;
    };
    EXPECT_FALSE(clean.calls.empty() && !row.reactions.empty()) << "No call is made.";
    for (std::size_t index = 0; index < clean.calls.size() && !::testing::Test::HasFailure(); ++index) {
        Call const& call = clean.calls[index];
        for (int const error : ErrorsOf(clean.callTexts[index])) {
            Reaction const* const reaction = FindReaction(row, clean.callTexts, index, error);
            if (reaction == nullptr && error == SHORT_THEN_EIO) {
                continue;
            }
            if (reaction == nullptr) {
                ADD_FAILURE() << "The row says nothing of " << clean.callTexts[index] << ", error " << error;
                return runs;
            }
            std::string const beginning = BeginningOf(*reaction);
            Fault fault = {call, beginning, PlaceAmong(clean.callTexts, index, beginning), 1, error, 1};
            expectReaction(*reaction, fault);
            if (error == EINTR && reaction->isRepeatedWhileInterrupted) {
                fault.times = call.function == "close" ? REPEATED_CLOSES : 3;
                expectReaction(*reaction, fault);
            } else if (!IsForOneCall(*reaction) && !reaction->isForOneFailure && error != SHORT_THEN_EIO) {
                fault.times = FOR_EVER;
                expectReaction(*reaction, fault);
            }
            if (error == SHORT && reaction->effect == Effect::NONE && call.size > 3) {
                fault.limit = call.size / 2;
                expectReaction(*reaction, fault);
            }
        }
    }
    return runs;
}

/// Fails each allocation.
/// \return how many runs had a failure
unsigned long FailEachAllocation(Row const& row) {
    Outcome const clean = RunUndisturbed(row);
    unsigned long runs = 0;
    for (unsigned long n = 1; n <= clean.allocations && !::testing::Test::HasFailure(); ++n) {
        ++runs;
        SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(clean.allocations));
        auto const run = [&] {
            return Run(
                row, [](Recorder&, World&) {}, n);
        };
        if (n > clean.allocations - row.fatalAllocations) {
            ExpectEnd(run);
            continue;
        }
        Outcome const actual = run();
        EXPECT_TRUE(actual.hasAllocationFailed);
        EXPECT_EQ(actual.text, "std::bad_alloc");
        std::vector<State> allowed = {actual.before, clean.after};
        for (auto const& changes : row.halfWay) {
            allowed.push_back(Changed(actual.before, changes));
        }
        EXPECT_NE(std::find(allowed.begin(), allowed.end(), actual.after), allowed.end())
            << ::testing::PrintToString(actual.after);
        EXPECT_EQ(actual.leaks, 0U);
        EXPECT_EQ(actual.heldBlocks, 0U);
        EXPECT_EQ(actual.debris, "");
    }
    return runs;
}

/// For who counts them over all rows.
void Tell(unsigned long runs) {
    std::cout << "Runs with a failure: " << runs << std::endl;
}

} // namespace

void PrintTo(Row const& row, std::ostream* stream) {
    *stream << row.name;
}

TEST_P(FaultLoopTest, EachFailingCallEndsAsItShouldAndLeavesNothing) {
    Tell(FailEachCall(GetParam()));
}

TEST_P(FaultLoopTest, EachFailingAllocationEndsAsItShouldAndLeavesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Tell(FailEachAllocation(GetParam()));
}

} // namespace FaultLoop
