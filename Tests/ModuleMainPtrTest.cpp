#include <Base/ModuleMainPtr.h>

#include <Base/Exception.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using TestSupport::Recorder;
using TestSupport::WaitUntil;

/// What the module's constructor and destructor do in a test, beside counting.
std::function<void()> duringConstruction;
std::function<void()> duringDestruction;
std::atomic<int> constructions{0};
std::atomic<int> destructions{0};

struct ModuleInterface {
    virtual ~ModuleInterface() = default;
};

struct Module : ModuleInterface {
    Module() {
        ++constructions;
        if (duringConstruction) {
            duringConstruction();
        }
    }
    Module(Module const&) = delete;
    Module& operator=(Module const&) = delete;
    ~Module() override {
        if (duringDestruction) {
            duringDestruction();
        }
        ++destructions;
    }
};

using Pointer = WBase::ModuleMainPtr<ModuleInterface, Module>;

class ModuleMainPtrTest : public ::testing::Test {
protected:
    ModuleMainPtrTest() {
        duringConstruction = nullptr;
        duringDestruction = nullptr;
        constructions = 0;
        destructions = 0;
    }

    Pointer pointer_;
};

// ---- Counting

TEST_F(ModuleMainPtrTest, ThereIsNoModuleAtFirst) {
    EXPECT_EQ(pointer_.Get(), nullptr);
    EXPECT_EQ(constructions, 0);
}

TEST_F(ModuleMainPtrTest, TheFirstUserCreatesTheModuleAndTheLastDestroysIt) {
    pointer_.Initialize();
    ModuleInterface* const module = pointer_.Get();
    EXPECT_NE(module, nullptr);
    pointer_.Initialize();
    EXPECT_EQ(pointer_.Get(), module);
    EXPECT_EQ(constructions, 1);
    pointer_.Finalize();
    EXPECT_EQ(pointer_.Get(), module);
    EXPECT_EQ(destructions, 0);
    pointer_.Finalize();
    EXPECT_EQ(pointer_.Get(), nullptr);
    EXPECT_EQ(destructions, 1);
}

TEST_F(ModuleMainPtrTest, AModuleCanBeCreatedAgain) {
    for (int round = 1; round <= 3; ++round) {
        pointer_.Initialize();
        EXPECT_EQ(constructions, round);
        pointer_.Finalize();
        EXPECT_EQ(destructions, round);
    }
}

TEST_F(ModuleMainPtrTest, TheModuleIsThereUntilItIsDestroyed) {
    ModuleInterface* during = nullptr;
    duringDestruction = [&] { during = pointer_.Get(); };
    pointer_.Initialize();
    ModuleInterface* const module = pointer_.Get();
    pointer_.Finalize();
    EXPECT_EQ(during, module);
    EXPECT_EQ(pointer_.Get(), nullptr);
}

TEST_F(ModuleMainPtrTest, TheModuleIsNotThereUntilItIsConstructed) {
    ModuleInterface* during = reinterpret_cast<ModuleInterface*>(this);
    duringConstruction = [&] { during = pointer_.Get(); };
    pointer_.Initialize();
    EXPECT_EQ(during, nullptr);
    pointer_.Finalize();
}

TEST_F(ModuleMainPtrTest, AFinalizeTooManyWrapsTheCount) {
    pointer_.Finalize();
    EXPECT_EQ(pointer_.Get(), nullptr);
    pointer_.Initialize(); // counts from the greatest number to 0
    EXPECT_EQ(constructions, 0);
    pointer_.Initialize();
    EXPECT_EQ(constructions, 1);
    pointer_.Finalize();
    EXPECT_EQ(destructions, 1);
}

// ---- A module that can't be constructed

TEST_F(ModuleMainPtrTest, AFailedConstructionIsPassedOnAndNotCounted) {
    std::runtime_error const* thrown = nullptr;
    duringConstruction = [&] {
        try {
            throw std::runtime_error("no module");
        } catch (std::runtime_error const& failure) {
            thrown = &failure;
            throw;
        }
    };
    try {
        pointer_.Initialize();
        ADD_FAILURE() << "It does not throw.";
    } catch (std::runtime_error const& failure) {
        EXPECT_EQ(&failure, thrown);
    }
    EXPECT_EQ(pointer_.Get(), nullptr);

    duringConstruction = nullptr;
    pointer_.Initialize(); // would wait for ever if the other were still counted as being inside
    EXPECT_EQ(constructions, 2);
    EXPECT_NE(pointer_.Get(), nullptr);
    pointer_.Finalize();
    EXPECT_EQ(destructions, 1);
}

TEST_F(ModuleMainPtrTest, AReportOfTheConstructionArrivesAsItIs) {
    duringConstruction = [] { throw WBase::ExceptionImpl<WBase::Message>("no module", EAGAIN); };
    EXPECT_THROW(pointer_.Initialize(), WBase::ExceptionImpl<WBase::Message>);
}

// ---- Waiting

/// Lets one thread stay inside the call until another one waits for it.
void ExpectToBeWaitedFor(
    std::function<void()>& during, std::function<void()> const& inside, std::function<void()> const& waiting) {
    Recorder recorder(Recorder::FILE_CALLS, Recorder::Threads::ALL);
    std::atomic<bool> isInside{false};
    std::atomic<bool> isOver{false};
    during = [&] {
        isInside = true;
        EXPECT_TRUE(recorder.WaitForCall("sleep", 3));
        EXPECT_FALSE(isOver);
    };
    std::thread first(inside);
    EXPECT_TRUE(WaitUntil([&] { return isInside.load(); }));
    std::thread second([&] {
        waiting();
        isOver = true;
    });
    first.join();
    second.join();
    EXPECT_EQ(recorder.Find("sleep").size, 0U);
    during = nullptr;
}

TEST_F(ModuleMainPtrTest, InitializeWaitsForAConstruction) {
    auto const initialize = [this] { pointer_.Initialize(); };
    ExpectToBeWaitedFor(duringConstruction, initialize, initialize);
    EXPECT_EQ(constructions, 1);
    pointer_.Finalize();
    EXPECT_EQ(destructions, 0);
    pointer_.Finalize();
    EXPECT_EQ(destructions, 1);
}

TEST_F(ModuleMainPtrTest, InitializeWaitsForADestruction) {
    pointer_.Initialize();
    ExpectToBeWaitedFor(
        duringDestruction, [this] { pointer_.Finalize(); }, [this] { pointer_.Initialize(); });
    EXPECT_EQ(constructions, 2);
    EXPECT_NE(pointer_.Get(), nullptr);
    pointer_.Finalize();
}

TEST_F(ModuleMainPtrTest, FinalizeWaitsForAConstruction) {
    ExpectToBeWaitedFor(
        duringConstruction, [this] { pointer_.Initialize(); }, [this] { pointer_.Finalize(); });
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(pointer_.Get(), nullptr);
}

TEST_F(ModuleMainPtrTest, NobodySleepsWhileTheWayIsFree) {
    Recorder const recorder;
    pointer_.Initialize();
    pointer_.Finalize();
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(ModuleMainPtrTest, ManyThreadsShareOneModuleAtATime) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this] {
            for (int round = 0; round < 500; ++round) {
                pointer_.Initialize();
                EXPECT_NE(pointer_.Get(), nullptr);
                EXPECT_EQ(constructions - destructions, 1);
                pointer_.Finalize();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(pointer_.Get(), nullptr);
    EXPECT_EQ(constructions, destructions);
}

TEST_F(ModuleMainPtrTest, WhoIsNoUserMayLookForTheModuleMeanwhile) {
    std::atomic<bool> isOver{false};
    std::thread onlooker([&] {
        while (!isOver) {
            pointer_.Get();
        }
    });
    for (int round = 0; round < 100; ++round) {
        pointer_.Initialize();
        pointer_.Finalize();
    }
    isOver = true;
    onlooker.join();
    EXPECT_EQ(pointer_.Get(), nullptr);
}

// ---- The fields

TEST_F(ModuleMainPtrTest, BusyWordCountAndPointerStandInThisOrder) {
    struct Fields {
        long busy;
        unsigned int count;
        ModuleInterface* pointer;
    };
    auto const fields = [this] {
        Fields result;
        static_assert(sizeof result == sizeof pointer_);
        std::memcpy(static_cast<void*>(&result), static_cast<void const*>(&pointer_), sizeof result);
        return result;
    };
    long whileBusy = 0;
    duringConstruction = [&] { whileBusy = fields().busy; };
    pointer_.Initialize();
    pointer_.Initialize();
    EXPECT_EQ(whileBusy, 0x12345678);
    EXPECT_EQ(fields().busy, 0);
    EXPECT_EQ(fields().count, 2U);
    EXPECT_EQ(fields().pointer, pointer_.Get());
    pointer_.Finalize();
    pointer_.Finalize();
    EXPECT_EQ(fields().count, 0U);
}

// ---- As a global

extern Pointer globalPointer;

// Runs before the definition below could be initialised at run time.
ModuleInterface* const moduleOfTheFirstInitialiser = [] {
    globalPointer.Initialize();
    return globalPointer.Get();
}();

Pointer globalPointer;

TEST_F(ModuleMainPtrTest, AGlobalNeedsNoInitialiser) {
    EXPECT_NE(moduleOfTheFirstInitialiser, nullptr);
    EXPECT_EQ(globalPointer.Get(), moduleOfTheFirstInitialiser);
    globalPointer.Finalize();
    EXPECT_EQ(globalPointer.Get(), nullptr);
}

TEST_F(ModuleMainPtrTest, AGlobalNeedsNoDestructor) {
    EXPECT_TRUE(std::is_trivially_destructible_v<Pointer>);
}

} // namespace
