#ifndef WFILESYSTEM_TESTS_SUPPORT_RECORDLOCKS_H
#define WFILESYSTEM_TESTS_SUPPORT_RECORDLOCKS_H

/// \file
/// \brief Asks the kernel which record locks stand.

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TestSupport {

/// The record locks that this process has placed through this descriptor: "READ 0-EOF", "WRITE 10-19". Use
/// SKIP_UNLESS_RECORD_LOCKS_ARE_LISTED() first.
std::vector<std::string> RecordLocksOf(int fd);

/// Whether the system lists the locks of a descriptor (Linux does).
bool AreRecordLocksListed();

/// Skips the test, visibly, where the system does not list the locks of a descriptor.
#define SKIP_UNLESS_RECORD_LOCKS_ARE_LISTED()                                                                          \
    if (!TestSupport::AreRecordLocksListed())                                                                          \
    GTEST_SKIP() << "This system does not list the record locks of a descriptor."

/// Which lock keeps another process from an exclusive lock on the whole file: "READ", "WRITE", or "" when none does.
/// A child process asks, so that the locks of this process count and stay. Works everywhere.
///
/// \code
/// EXPECT_EQ(TestSupport::RecordLockSeenByOthers(scratch / "data"), "WRITE");
/// \endcode
std::string RecordLockSeenByOthers(std::string const& path);

} // namespace TestSupport

#endif
