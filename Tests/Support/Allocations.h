#ifndef WFILESYSTEM_TESTS_SUPPORT_ALLOCATIONS_H
#define WFILESYSTEM_TESTS_SUPPORT_ALLOCATIONS_H

/// \file
/// \brief Counts what the code under test allocates, and makes allocations fail.

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// Observes `operator new` in the thread that made it, from its construction to Stop() or its end. One at a time a
/// thread.
///
/// \code
/// TestSupport::Allocations allocations;
/// auto const path = WFileSystem::Path::Combine(L"a", L"b");
/// EXPECT_EQ(allocations.Stop(), 1U);
/// \endcode
///
/// What the compiler has optimised away is not counted. Allocations of the C library (`malloc`, and with it the memory
/// of a thrown exception) and over-aligned ones are not seen, nor are those of TestSupport's recorders. Assertions that
/// fail allocate; Stop() first, then compare.
///
/// Every allocation and release leaves ERRNO_AFTERWARDS in errno, as memory management is free to: who reads an error
/// too late gets that one.
class Allocations {
public:
    static constexpr int ERRNO_AFTERWARDS = EMLINK;

    Allocations();
    ~Allocations();

    Allocations(Allocations const&) = delete;
    Allocations& operator=(Allocations const&) = delete;

    /// Makes the n-th allocation, from 1, throw std::bad_alloc; the non-throwing forms give null.
    void FailNth(unsigned long n);

    /// Makes the n-th allocation, from 1, and all later ones fail.
    void FailFrom(unsigned long n);

    /// Ends observation.
    /// \return the count
    unsigned long Stop();

    /// How many allocations there were, with those that failed.
    unsigned long GetCount() const;

    /// How many bytes they asked for in all; what was freed again is not subtracted.
    unsigned long GetBytes() const;

    /// How many blocks made during the observation were not released in it: after the end of an operation, what it leaks.
    unsigned long GetHeld() const { return blocks_.size(); }

    /// Whether an allocation was made to fail. A fault loop ends when not.
    bool HasFailed() const;

    /// What each block held when it was released, up to its first NUL, in the order of release. Blocks made before the
    /// observation are left out.
    std::vector<std::string> const& ReleasedTexts() const { return releasedTexts_; }

    /// Counts an allocation of so many bytes in the calling thread; for `operator new`.
    /// \return whether it is to fail
    static bool CountOne(unsigned long size);

    /// Notes a block of the calling thread, and changes errno; for `operator new`.
    static void NoteBlock(void const* block, std::size_t size);

    /// Notes the end of a block, and changes errno; for `operator delete`, before the memory is given back.
    static void NoteRelease(void const* block);

    /// False in programs that Clang's ThreadSanitizer instruments: there `operator new` can't be replaced, and nothing
    /// is seen.
    static bool AreObserved();

private:
    bool hasFailed_ = false;
    unsigned long count_ = 0;
    unsigned long bytes_ = 0;
    unsigned long firstFailing_ = 0;
    unsigned long lastFailing_ = 0;
    std::vector<std::pair<void const*, std::size_t>> blocks_;
    std::vector<std::string> releasedTexts_;
};

/// Skips the test, visibly, where allocations can't be observed.
#define SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED()                                                                         \
    if (!TestSupport::Allocations::AreObserved())                                                                      \
    GTEST_SKIP() << "operator new can't be replaced in this build"

} // namespace TestSupport

#endif
