#include <Tests/Support/Program.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <csignal>
#include <list>
#include <string>
#include <vector>

namespace {

using namespace TestSupport;

std::string const USAGE = "Usage: PipeEcho serve BASE [PAUSE]\n       PipeEcho call BASE TEXT...\n";

/// A server that answers at once.
class PipeEchoTest : public ::testing::Test {
protected:
    std::vector<std::string> Call(std::vector<std::string> const& texts) const {
        std::vector<std::string> command = {PIPE_ECHO_PROGRAM, "call", base_};
        command.insert(command.end(), texts.begin(), texts.end());
        return command;
    }

    ScratchDirectory scratch_;
    std::string base_ = scratch_ / "Ä";
    Program server_{{PIPE_ECHO_PROGRAM, "serve", base_, "0"}};
};

TEST_F(PipeEchoTest, ThreeClientsAreServedInTurn) {
    ASSERT_TRUE(server_.WaitForOutput("ready\n"));
    for (char const* const text : {"first", "", "the third one"}) {
        ProgramResult const result = RunProgram(Call({text, text}));
        EXPECT_EQ(result.output, std::string(text) + '\n' + text + '\n');
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(PipeEchoTest, EightClientsAtOnceGetTheirOwnRepliesInTheirOrder) {
    ASSERT_TRUE(server_.WaitForOutput("ready\n"));
    std::list<Program> clients;
    std::vector<std::string> expected(8);
    for (std::size_t client = 0; client < expected.size(); ++client) {
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < 125; ++i) {
            texts.push_back(std::to_string(client) + ' ' + std::string(i, 'x'));
            expected[client] += texts.back() + '\n';
        }
        clients.emplace_back(Call(texts));
    }
    for (std::string const& output : expected) {
        EXPECT_EQ(clients.front().Wait().output, output);
        clients.pop_front();
    }
}

TEST_F(PipeEchoTest, AMessageThatNoFifoHoldsIsEchoed) {
    ASSERT_TRUE(server_.WaitForOutput("ready\n"));
    std::string const text(100000, 'x');
    EXPECT_EQ(RunProgram(Call({text})).output, text + '\n');
}

TEST_F(PipeEchoTest, ASignalEndsTheServerBeforeAndAfterItsFirstClient) {
    for (bool const hasClient : {false, true}) {
        Program server({PIPE_ECHO_PROGRAM, "serve", scratch_ / "other", "0"});
        ASSERT_TRUE(server.WaitForOutput("ready\n"));
        if (hasClient) {
            RunProgram({PIPE_ECHO_PROGRAM, "call", scratch_ / "other", "x"});
        }
        ProgramResult const result = server.Kill(hasClient ? SIGINT : SIGTERM);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(PipeEchoTest, AClientWithoutAServerFails) {
    ProgramResult const result = RunProgram({PIPE_ECHO_PROGRAM, "call", scratch_ / "missing", "x"});
    EXPECT_EQ(result.errors, "Can't open lock for pipe\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(PipeEchoTest, AServerWithoutADirectoryFails) {
    ProgramResult const result = RunProgram({PIPE_ECHO_PROGRAM, "serve", scratch_ / "missing/base"});
    EXPECT_EQ(result.errors, "Failed to create name pipe\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(PipeEchoTest, TellsItsUsage) {
    std::vector<std::vector<std::string>> const commands = {
        {}, {"serve"}, {"call"}, {"talk", "x"}, {"serve", "x", "1", "2"}};
    for (auto const& arguments : commands) {
        std::vector<std::string> command = {PIPE_ECHO_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramResult const result = RunProgram(command);
        EXPECT_EQ(result.errors, USAGE);
        EXPECT_EQ(result.status, 2);
    }
}

} // namespace
