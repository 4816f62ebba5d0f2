#include <Tests/Support/Allocations.h>
#include <Tests/Support/Interposition.h>
#include <Tests/Support/Next.h>

#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WFILESYSTEM_TESTS_OPERATOR_NEW_IS_TAKEN
#endif
#endif

namespace TestSupport {
namespace {

constexpr unsigned long NEVER = std::numeric_limits<unsigned long>::max();

struct Observed {
    bool isActive = false;
    bool hasFailed = false;
    unsigned long count = 0;
    unsigned long firstFailing = NEVER;
    unsigned long lastFailing = 0;
};

thread_local Observed observed;

} // namespace

#ifndef WFILESYSTEM_TESTS_OPERATOR_NEW_IS_TAKEN
namespace {

// What the replaced operators stand in front of, so that a sanitizer still sees which form made a block.
using New = Next<void*(std::size_t)>;
using Delete = Next<void(void*)>;
New plainNew("_Znwm");
New arrayNew("_Znam");
Delete plainDelete("_ZdlPv");
Delete arrayDelete("_ZdaPv");

// Counts an allocation; the answer is whether it is to fail.
bool MustFail() {
    if (!observed.isActive || IsUnobserved()) {
        return false;
    }
    ++observed.count;
    bool const mustFail = observed.count >= observed.firstFailing && observed.count <= observed.lastFailing;
    observed.hasFailed = observed.hasFailed || mustFail;
    return mustFail;
}

void* Allocate(New& next, std::size_t size) {
    if (MustFail()) {
        throw std::bad_alloc();
    }
    // One form may call another, which is not to count again.
    bool const wasActive = std::exchange(observed.isActive, false);
    void* block = nullptr;
    try {
        block = next(size);
    } catch (...) {
        observed.isActive = wasActive;
        throw;
    }
    observed.isActive = wasActive;
    return block;
}

void* AllocateOrNull(New& next, std::size_t size) noexcept {
    try {
        return Allocate(next, size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

} // namespace
#endif

Allocations::Allocations() {
    observed = Observed();
    observed.isActive = true;
}

Allocations::~Allocations() {
    Stop();
}

void Allocations::FailNth(unsigned long n) {
    observed.firstFailing = observed.lastFailing = observed.count + n;
}

void Allocations::FailFrom(unsigned long n) {
    observed.firstFailing = observed.count + n;
    observed.lastFailing = NEVER;
}

unsigned long Allocations::Stop() {
    observed.isActive = false;
    return observed.count;
}

unsigned long Allocations::GetCount() const {
    return observed.count;
}

bool Allocations::HasFailed() const {
    return observed.hasFailed;
}

bool Allocations::AreObserved() {
#ifdef WFILESYSTEM_TESTS_OPERATOR_NEW_IS_TAKEN
    return false;
#else
    return true;
#endif
}

} // namespace TestSupport

#ifndef WFILESYSTEM_TESTS_OPERATOR_NEW_IS_TAKEN

void* operator new(std::size_t size) {
    return TestSupport::Allocate(TestSupport::plainNew, size);
}

void* operator new[](std::size_t size) {
    return TestSupport::Allocate(TestSupport::arrayNew, size);
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return TestSupport::AllocateOrNull(TestSupport::plainNew, size);
}

void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return TestSupport::AllocateOrNull(TestSupport::arrayNew, size);
}

void operator delete(void* block) noexcept {
    TestSupport::plainDelete(block);
}

void operator delete[](void* block) noexcept {
    TestSupport::arrayDelete(block);
}

void operator delete(void* block, std::size_t) noexcept {
    TestSupport::plainDelete(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    TestSupport::arrayDelete(block);
}

void operator delete(void* block, std::nothrow_t const&) noexcept {
    TestSupport::plainDelete(block);
}

void operator delete[](void* block, std::nothrow_t const&) noexcept {
    TestSupport::arrayDelete(block);
}

#endif
