#include <Synch/ReferenceCountedImpl.h>

#include <Tests/Support/VirtualSlots.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using TestSupport::SlotOf;
using WBase::ReferenceCounted;
using Impl = WSynch::ReferenceCountedImpl<WSynch::AtomicLong>;

/// Tells of its destruction.
class Shared : public Impl {
public:
    explicit Shared(std::atomic<int>& destructions) : destructions_(destructions) {}
    ~Shared() override { ++destructions_; }

private:
    std::atomic<int>& destructions_;
};

/// Also does what a test wants before the last reference is dropped.
class Notified : public Shared {
public:
    Notified(std::atomic<int>& destructions, std::function<void(Notified const&)> action)
        : Shared(destructions), action_(std::move(action)) {}

    void ReferenceCountIsAboutToReachZero() const noexcept override { action_(*this); }

private:
    std::function<void(Notified const&)> action_;
};

/// Counts in its own way, and is not interested in the end.
class Owned : public ReferenceCounted {
public:
    void AddRef() const noexcept override { ++calls_; }
    void Release() const noexcept override { ++calls_; }

    mutable int calls_ = 0;
};

class ReferenceCountedImplTest : public ::testing::Test {
protected:
    std::atomic<int> destructions_{0};
};

TEST_F(ReferenceCountedImplTest, ANewObjectHasNoReferences) {
    EXPECT_EQ(Shared(destructions_).GetReferenceCount(), 0);
}

TEST_F(ReferenceCountedImplTest, TheLastReferenceDestroysTheObject) {
    auto* const object = new Shared(destructions_);
    object->AddRef();
    object->AddRef();
    EXPECT_EQ(object->GetReferenceCount(), 2);
    object->Release();
    EXPECT_EQ(object->GetReferenceCount(), 1);
    EXPECT_EQ(destructions_, 0);
    object->Release();
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, AConstObjectIsCountedThroughItsInterface) {
    ReferenceCounted const* const object = new Shared(destructions_);
    object->AddRef();
    object->Release();
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, ItIsAskedOnlyBeforeTheCountFallsFrom1To0) {
    std::vector<long> counts;
    auto* const object =
        new Notified(destructions_, [&](Notified const& self) { counts.push_back(self.GetReferenceCount()); });
    object->AddRef();
    object->AddRef();
    object->Release();
    EXPECT_EQ(counts, std::vector<long>{});
    object->Release();
    EXPECT_EQ(counts, std::vector<long>{1});
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, AnObjectThatIsReferredToMeanwhileStays) {
    bool isFirst = true;
    auto* const object = new Notified(destructions_, [&](Notified const& self) {
        if (isFirst) {
            self.AddRef();
            isFirst = false;
        }
    });
    object->AddRef();
    object->Release();
    EXPECT_EQ(destructions_, 0);
    EXPECT_EQ(object->GetReferenceCount(), 1);
    object->Release();
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, ThreadsShareOneObject) {
    auto* const object = new Shared(destructions_);
    object->AddRef();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([object] {
            for (int round = 0; round < 10000; ++round) {
                object->AddRef();
                object->Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(object->GetReferenceCount(), 1);
    EXPECT_EQ(destructions_, 0);
    object->Release();
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, TheLastOfManyThreadsDestroysTheObject) {
    for (int round = 1; round <= 200; ++round) {
        auto* const object = new Shared(destructions_);
        object->AddRef();
        object->AddRef();
        std::thread other([object] { object->Release(); });
        object->Release();
        other.join();
        EXPECT_EQ(destructions_, round);
    }
}

TEST_F(ReferenceCountedImplTest, TheEndIsNewsThatMayBeIgnored) {
    Owned const object;
    object.ReferenceCountIsAboutToReachZero();
    EXPECT_EQ(object.calls_, 0);
}

// ---- The slots

TEST_F(ReferenceCountedImplTest, TheOperationsHaveTheirSlots) {
    EXPECT_EQ(SlotOf(&ReferenceCounted::AddRef), 2U);
    EXPECT_EQ(SlotOf(&ReferenceCounted::Release), 3U);
    EXPECT_EQ(SlotOf(&ReferenceCounted::ReferenceCountIsAboutToReachZero), 4U);
    EXPECT_EQ(SlotOf(&Impl::AddRef), 2U);
    EXPECT_EQ(SlotOf(&Impl::Release), 3U);
    EXPECT_EQ(SlotOf(&Impl::ReferenceCountIsAboutToReachZero), 4U);
}

TEST_F(ReferenceCountedImplTest, TheFirstSlotDestroysTheObject) {
    alignas(Shared) unsigned char storage[sizeof(Shared)];
    TestSupport::CallSlot(new (storage) Shared(destructions_), TestSupport::SLOT_OF_DESTRUCTOR);
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, TheSecondSlotDestroysTheObjectAndFreesIt) {
    TestSupport::CallSlot(new Shared(destructions_), TestSupport::SLOT_OF_DELETING_DESTRUCTOR);
    EXPECT_EQ(destructions_, 1);
}

TEST_F(ReferenceCountedImplTest, TheInterfaceIsAVirtualBase) {
    struct TwiceAnInterface : virtual ReferenceCounted, Impl {};
    EXPECT_TRUE((std::is_convertible_v<TwiceAnInterface*, ReferenceCounted*>));
}

TEST_F(ReferenceCountedImplTest, OnlyCountingIsLeftToTheClass) {
    struct Counting : ReferenceCounted {
        void AddRef() const noexcept override {}
        void Release() const noexcept override {}
    };
    EXPECT_FALSE(std::is_abstract_v<Counting>);
}

} // namespace
