#include <Tests/Tools/WfsProgram.h>

#include <Tools/wfs/CommandLine.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using TestSupport::Child;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

namespace {

/// Prints the test's failed assertions on standard error, because standard output is closed by now.
void PrintFailures() {
    ::testing::TestResult const& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int index = 0; index < result.total_part_count(); ++index) {
        std::fprintf(stderr, "%s\n", result.GetTestPartResult(index).message());
    }
}

} // namespace

std::string const WfsTest::PROGRAM = WFS_PROGRAM;

void WfsTest::Write(std::string const& name, std::string_view bytes) const {
    TestSupport::WriteFile(scratch_ / name, bytes);
}

WfsTest::Arguments WfsTest::Command(Arguments arguments) {
    arguments.insert(arguments.begin(), PROGRAM);
    return arguments;
}

TestSupport::ProgramOptions WfsTest::Options() const {
    TestSupport::ProgramOptions options;
    options.directory = scratch_.Path();
    options.environment = {"WFS=" + PROGRAM};
    return options;
}

ProgramResult WfsTest::Run(Arguments const& arguments) const {
    return TestSupport::RunProgram(Command(arguments), "", Options());
}

ProgramResult WfsTest::RunScript(std::string const& script) const {
    return TestSupport::RunProgram({"sh", "-c", script}, "", Options());
}

ProgramResult
WfsTest::RunObserved(Arguments const& arguments, Prepare const& prepare, Meanwhile const& meanwhile) const {
    TestSupport::ScratchDirectory const streams;
    Child child([&](Child::Parent& parent) {
        auto const redirect = [&](int stream, std::string const& name) {
            int const fd = ::open((streams / name).c_str(), O_WRONLY | O_CREAT, 0600);
            ::dup2(fd, stream);
            ::close(fd);
        };
        redirect(STDOUT_FILENO, "output");
        redirect(STDERR_FILENO, "errors");
        EXPECT_EQ(::chdir(scratch_.Path().c_str()), 0);

        std::vector<char const*> argv = {"wfs"};
        for (std::string const& argument : arguments) {
            argv.push_back(argument.c_str());
        }
        argv.push_back(nullptr);
        int status = 0;
        {
            Recorder recorder;
            prepare(recorder, parent);
            status = Wfs::Run(static_cast<int>(argv.size()) - 1, argv.data());
        }
        PrintFailures();
        return status;
    });
    meanwhile(child);
    ProgramResult result;
    result.status = child.Wait();
    result.output = TestSupport::ReadFile(streams / "output");
    result.errors = TestSupport::ReadFile(streams / "errors");
    return result;
}

LockHolder::LockHolder(std::string const& path) : fd_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    struct flock record = {};
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    EXPECT_EQ(::fcntl(fd_, F_SETLK, &record), 0);
}

LockHolder::~LockHolder() {
    ::close(fd_);
}

void LockHolder::Release() const {
    struct flock record = {};
    record.l_type = F_UNLCK;
    record.l_whence = SEEK_SET;
    EXPECT_EQ(::fcntl(fd_, F_SETLK, &record), 0);
}
