#include <FileSystem/Initializer.h>

#include <FileSystem/File.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <Synch/Initializer.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <type_traits>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::Environment;
using TestSupport::Recorder;
using WFileSystem::gModuleMainPtr;
using WFileSystem::Initializer;
using WFileSystem::ModuleMain;

TEST(InitializerTest, NothingIsThereBeforeTheFirstInitializer) {
    EXPECT_EQ(gModuleMainPtr.Get(), nullptr);
    EXPECT_EQ(WSynch::Initializer::GetCount(), 0);
}

TEST(InitializerTest, NothingRunsWhenTheLibraryIsLoaded) {
    auto const symbols = TestSupport::RunProgram({"nm", WFILESYSTEM_LIBRARY});
    if (symbols.status == 127) {
        GTEST_SKIP() << "There is no nm to look into the library with.";
    }
    // A global that is zero at load stands in the section "b".
    EXPECT_THAT(symbols.output, ContainsRegex(" [bB] _ZN11WFileSystem14gModuleMainPtrE\n"));
    EXPECT_THAT(symbols.output, Not(HasSubstr("_GLOBAL__sub_I_"))) << "An initialiser of a global runs at load.";
}

TEST(InitializerTest, TheModuleLivesFromTheFirstInitializerToTheLast) {
    std::optional<Initializer> first(std::in_place);
    ModuleMain* const module = gModuleMainPtr.Get();
    EXPECT_NE(module, nullptr);
    std::optional<Initializer> second(std::in_place);
    EXPECT_EQ(gModuleMainPtr.Get(), module);
    EXPECT_EQ(WSynch::Initializer::GetCount(), 1);
    first.reset();
    EXPECT_EQ(gModuleMainPtr.Get(), module);
    second.reset();
    EXPECT_EQ(gModuleMainPtr.Get(), nullptr);
    EXPECT_EQ(WSynch::Initializer::GetCount(), 0);
}

TEST(InitializerTest, AModuleThatCanNotBeMadeIsReportedAndCanBeTriedAgain) {
    {
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_mutex_init").Fail(EAGAIN);
        EXPECT_REPORT(Initializer(), L"::pthread_mutex_init failed", EAGAIN);
    }
    EXPECT_EQ(gModuleMainPtr.Get(), nullptr);
    Initializer const initializer;
    EXPECT_NE(gModuleMainPtr.Get(), nullptr);
}

TEST(InitializerTest, AnInitializerIsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Initializer> || std::is_copy_assignable_v<Initializer>);
}

TEST(InitializerTest, ToDestroyDoesNotThrow) {
    EXPECT_TRUE(std::is_nothrow_destructible_v<Initializer>);
}

// ---- The mode of files that are created

class CreationModeTest : public ::testing::Test {
protected:
    CreationModeTest() : variable_("VUSK_FILE_MODE", "701"), mask_(::umask(0)) {}
    ~CreationModeTest() override { ::umask(mask_); }

    /// The permission bits of a file that the library creates.
    unsigned int ModeOfNewFile() {
        std::string const name = std::to_string(++files_);
        int fd = WFileSystem::File::OpenDescriptor(
            scratch_.Wide(name).c_str(), WFileSystem::File::OPEN_WRITE_CREATE, WFileSystem::File::SHARE_IGNORED);
        ::close(fd);
        return TestSupport::ModeOf(scratch_ / name);
    }

private:
    TestSupport::ScratchDirectory const scratch_;
    Environment const variable_;
    mode_t const mask_;
    int files_ = 0;
};

TEST_F(CreationModeTest, WithoutAModuleFilesAreCreatedWith0664) {
    EXPECT_EQ(ModeOfNewFile(), 0664U);
}

TEST_F(CreationModeTest, WithAModuleFilesAreCreatedWithItsMode) {
    std::optional<Initializer> first(std::in_place);
    std::optional<Initializer> second(std::in_place);
    EXPECT_EQ(ModeOfNewFile(), 0761U);
    first.reset();
    EXPECT_EQ(ModeOfNewFile(), 0761U);
    second.reset();
    EXPECT_EQ(ModeOfNewFile(), 0664U);
}

TEST_F(CreationModeTest, TheProcessesMaskApplies) {
    ::umask(022);
    EXPECT_EQ(ModeOfNewFile(), 0644U);
    Initializer const initializer;
    EXPECT_EQ(ModeOfNewFile(), 0741U);
}

} // namespace
