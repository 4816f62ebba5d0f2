#ifndef WFILESYSTEM_TESTS_TOOLS_WFSPROGRAM_H
#define WFILESYSTEM_TESTS_TOOLS_WFSPROGRAM_H

/// \file
/// \brief Runs `wfs`: the built program, or its code in a child of the test, where system calls can be made to fail.

#include <Tests/Support/Child.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// A test with a scratch directory, in which `wfs` runs.
class WfsTest : public ::testing::Test {
protected:
    using Arguments = std::vector<std::string>;
    using Prepare = std::function<void(TestSupport::Recorder&, TestSupport::Child::Parent&)>;
    using Meanwhile = std::function<void(TestSupport::Child&)>;

    /// The built program's path.
    static std::string const PROGRAM;

    /// Makes a file in the scratch directory.
    void Write(std::string const& name, std::string_view bytes) const;

    /// What makes the built program run with these arguments.
    static Arguments Command(Arguments arguments);
    TestSupport::ProgramOptions Options() const;

    /// Runs the built program.
    TestSupport::ProgramResult Run(Arguments const& arguments) const;

    /// The words of each verb, as the help lists them, those that belong to another one as well: {"pipe", "call"}.
    std::vector<Arguments> AllVerbs() const;

    /// The names of a verb's options, as its help lists them, with their values: "--wait MS".
    std::vector<std::string> OptionsOf(Arguments const& verb) const;

    /// Runs a shell script, in which "$WFS" is the built program.
    TestSupport::ProgramResult RunScript(std::string const& script) const;

    /// Runs the program's code in a child of this process.
    /// \param prepare is called in the child before, and can make rules for the system calls
    /// \param meanwhile is called in this process
    TestSupport::ProgramResult RunObserved(
        Arguments const& arguments, Prepare const& prepare, Meanwhile const& meanwhile = [](auto&) {}) const;

    TestSupport::ScratchDirectory const scratch_;

private:
    std::string HelpOf(Arguments const& verb) const;
    void AddVerbsOf(Arguments const& verb, std::vector<Arguments>& verbs) const;
};

/// Holds the exclusive record lock of a file, by this process, for a scope.
class LockHolder {
public:
    explicit LockHolder(std::string const& path);
    ~LockHolder();

    LockHolder(LockHolder const&) = delete;
    LockHolder& operator=(LockHolder const&) = delete;

    void Release() const;

private:
    int fd_;
};

#endif
