// The module but for its registry, which is tested in LockerRegistryTest.cpp.

#include <FileSystem/PrivateSource/ModuleMain.h>

#include <Synch/Initializer.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <type_traits>

namespace {

using TestSupport::Call;
using TestSupport::Environment;
using TestSupport::Recorder;
using WFileSystem::ModuleMain;

// ---- The permission bits for new files

unsigned int FileModeWith(std::optional<std::string> const& value) {
    Environment const variable("VUSK_FILE_MODE", value);
    return ModuleMain().GetFileMode();
}

TEST(ModuleMainTest, WithoutTheVariableFilesAreReadAndWrittenByOwnerAndGroup) {
    EXPECT_EQ(FileModeWith(std::nullopt), 0664U);
}

TEST(ModuleMainTest, TheVariableGivesTheFileModeInOctal) {
    struct {
        char const* value;
        unsigned int mode;
    } const cases[] = {
        {"600", 0660},        {"644", 0664},
        {"7", 0667},          {"777", 0777},
        {"0777", 0777},       {"1", 0661},
        {"100", 0760},        {"0", 0664}, // 0 and what is above 0777 does not count
        {"000", 0664},        {"1000", 0664},
        {"1777", 0664},       {"20000000000000000000000777", 0664}, // more than a number can hold
        {"", 0664},           {"abc", 0664},
        {"8", 0664},          {" ", 0664},
        {"644abc", 0664}, // what follows the digits does not count
        {"7 and more", 0667}, {"78", 0667},
        {"0x1ff", 0664},      {" \t\n7", 0667}, // blanks and a sign may come first
        {"+7", 0667},         {"- 7", 0664},
        {"-7", 0664},         {"-1777777777777777777771", 0667}, // 7 less 2 to the 64th
    };
    for (auto const& [value, mode] : cases) {
        EXPECT_EQ(FileModeWith(value), mode) << '"' << value << '"';
    }
}

TEST(ModuleMainTest, TheVariableIsReadOnceForEachModule) {
    Environment const atFirst("VUSK_FILE_MODE", "700");
    Recorder const recorder("getenv");
    std::optional<ModuleMain> module(std::in_place);
    Environment const later("VUSK_FILE_MODE", "707");
    EXPECT_EQ(module->GetFileMode(), 0760);
    EXPECT_EQ(recorder.Calls().size(), 1U);
    EXPECT_EQ(recorder.Find("getenv").path, "VUSK_FILE_MODE");
    module.emplace();
    EXPECT_EQ(module->GetFileMode(), 0767);
}

// ---- The life of a module

TEST(ModuleMainTest, AModuleMakesItsMutexReadsTheVariableAndDestroysTheMutexAtItsEnd) {
    Recorder const recorder(Recorder::EVERY_CALL);
    { ModuleMain const module; }
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init getenv pthread_mutex_destroy");
    EXPECT_EQ(recorder.Find("pthread_mutex_init").data, recorder.Find("pthread_mutex_destroy").data);
}

TEST(ModuleMainTest, TheSynchronisationLayerIsKeptBeforeAndBeyondTheMutex) {
    long before = 0;
    long beyond = 0;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_init").Before([&](Call const&) { before = WSynch::Initializer::GetCount(); });
    recorder.On("pthread_mutex_destroy").Before([&](Call const&) { beyond = WSynch::Initializer::GetCount(); });
    { ModuleMain const module; }
    EXPECT_EQ(before, 1);
    EXPECT_EQ(beyond, 1);
    EXPECT_EQ(WSynch::Initializer::GetCount(), 0);
}

TEST(ModuleMainTest, AFailedMutexIsReportedAndLeavesNothingBehind) {
    Recorder recorder(Recorder::EVERY_CALL);
    recorder.On("pthread_mutex_init").Fail(EAGAIN);
    EXPECT_REPORT(ModuleMain(), L"::pthread_mutex_init failed", EAGAIN);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init");
    EXPECT_EQ(WSynch::Initializer::GetCount(), 0);
}

TEST(ModuleMainTest, ToDestroyDoesNotThrow) {
    EXPECT_TRUE(std::is_nothrow_destructible_v<ModuleMain>);
}

} // namespace
