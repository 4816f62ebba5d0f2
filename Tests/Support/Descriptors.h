#ifndef WFILESYSTEM_TESTS_SUPPORT_DESCRIPTORS_H
#define WFILESYSTEM_TESTS_SUPPORT_DESCRIPTORS_H

/// \file
/// \brief Which descriptors the process has.

#include <vector>

namespace TestSupport {

/// The open descriptors, ascending.
std::vector<int> OpenDescriptors();

/// Whether a descriptor is open.
bool IsOpen(int fd);

/// Whether a descriptor is closed when another program is run.
bool IsCloseOnExec(int fd);

/// Fails the test at its end unless exactly so many descriptors were left open since its construction, and all that
/// were open at its construction still are. Those left open are then closed, so that they do not disturb later tests.
///
/// \code
/// TestSupport::DescriptorCheck const check(1); // the open that times out leaves its descriptor
/// \endcode
class DescriptorCheck {
public:
    explicit DescriptorCheck(unsigned int leaks = 0);
    ~DescriptorCheck();

    DescriptorCheck(DescriptorCheck const&) = delete;
    DescriptorCheck& operator=(DescriptorCheck const&) = delete;

private:
    unsigned int leaks_;
    std::vector<int> before_;
};

/// A descriptor is closed while this object lives. Then it is again what it was, whatever has the number by then.
///
/// \code
/// TestSupport::CloseDuring const noInput(0); // the next open gives descriptor 0
/// \endcode
class CloseDuring {
public:
    explicit CloseDuring(int fd);
    ~CloseDuring();

    CloseDuring(CloseDuring const&) = delete;
    CloseDuring& operator=(CloseDuring const&) = delete;

private:
    int fd_;
    int copy_; // -1 when the descriptor was not open
};

} // namespace TestSupport

#endif
