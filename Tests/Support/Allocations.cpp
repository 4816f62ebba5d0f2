#include <Tests/Support/Allocations.h>
#include <Tests/Support/Interposition.h>
#include <Tests/Support/Next.h>
#include <Tests/Support/Sanitizers.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>

// Clang links the sanitizer, with these operators, into the program.
#if defined(TESTSUPPORT_THREAD_SANITIZER) && defined(__clang__)
#define WFILESYSTEM_TESTS_OPERATOR_NEW_IS_TAKEN
#endif

namespace TestSupport {
namespace {

// The calling thread's; null while none observes.
thread_local Allocations* observer = nullptr;

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

void* Allocate(New& next, std::size_t size) {
    if (Allocations::CountOne(size)) {
        throw std::bad_alloc();
    }
    // One form may call another, which is not to count again.
    bool const isObserved = !IsUnobserved();
    Unobserved const unobserved;
    void* const block = next(size);
    if (isObserved) {
        Allocations::NoteBlock(block, size);
    }
    return block;
}

void Release(Delete& next, void* block) noexcept {
    bool const isObserved = !IsUnobserved();
    Unobserved const unobserved;
    if (isObserved) {
        Allocations::NoteRelease(block);
    }
    next(block);
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
    observer = this;
}

Allocations::~Allocations() {
    Stop();
}

void Allocations::FailNth(unsigned long n) {
    firstFailing_ = lastFailing_ = count_ + n;
}

void Allocations::FailFrom(unsigned long n) {
    firstFailing_ = count_ + n;
    lastFailing_ = std::numeric_limits<unsigned long>::max();
}

unsigned long Allocations::Stop() {
    if (observer == this) {
        observer = nullptr;
    }
    return count_;
}

unsigned long Allocations::GetCount() const {
    return count_;
}

unsigned long Allocations::GetBytes() const {
    return bytes_;
}

bool Allocations::HasFailed() const {
    return hasFailed_;
}

bool Allocations::CountOne(unsigned long size) {
    if (observer == nullptr || IsUnobserved()) {
        return false;
    }
    unsigned long const n = ++observer->count_;
    observer->bytes_ += size;
    bool const isToFail = n >= observer->firstFailing_ && n <= observer->lastFailing_;
    observer->hasFailed_ = observer->hasFailed_ || isToFail;
    return isToFail;
}

void Allocations::NoteBlock(void const* block, std::size_t size) {
    if (observer != nullptr) {
        observer->blocks_.emplace_back(block, size);
        errno = ERRNO_AFTERWARDS;
    }
}

void Allocations::NoteRelease(void const* block) {
    if (observer == nullptr) {
        return;
    }
    // An address that came up twice counts as its latest block.
    auto& blocks = observer->blocks_;
    auto const position =
        std::find_if(blocks.rbegin(), blocks.rend(), [block](auto const& known) { return known.first == block; });
    if (position != blocks.rend()) {
        auto const* const text = static_cast<char const*>(block);
        observer->releasedTexts_.emplace_back(text, ::strnlen(text, position->second));
        blocks.erase(std::next(position).base());
    }
    errno = ERRNO_AFTERWARDS;
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

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
    return TestSupport::AllocateOrNull(TestSupport::plainNew, size);
}

void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
    return TestSupport::AllocateOrNull(TestSupport::arrayNew, size);
}

void operator delete(void* block) noexcept {
    TestSupport::Release(TestSupport::plainDelete, block);
}

void operator delete[](void* block) noexcept {
    TestSupport::Release(TestSupport::arrayDelete, block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    TestSupport::Release(TestSupport::plainDelete, block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    TestSupport::Release(TestSupport::arrayDelete, block);
}

void operator delete(void* block, std::nothrow_t const& /*tag*/) noexcept {
    TestSupport::Release(TestSupport::plainDelete, block);
}

void operator delete[](void* block, std::nothrow_t const& /*tag*/) noexcept {
    TestSupport::Release(TestSupport::arrayDelete, block);
}

#endif
