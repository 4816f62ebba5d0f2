#ifndef WFILESYSTEM_TESTS_SUPPORT_CHILD_H
#define WFILESYSTEM_TESTS_SUPPORT_CHILD_H

/// \file
/// \brief Code of a test that runs in a process of its own.

#include <Tests/Support/Process.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace TestSupport {

class Channel;

/// Runs code in a forked child. The two sides follow each other by words: each WaitFor takes the next word of the other
/// side, which must be the one named. Every wait is bounded.
///
/// \code
/// TestSupport::Child child([&](TestSupport::Child::Parent& parent) {
///     int fd = ::open(path.c_str(), O_RDWR);
///     File::WriteLock(fd, true);
///     parent.Say("locked");
///     parent.WaitFor("go on");
/// });
/// ASSERT_TRUE(child.WaitFor("locked"));
/// EXPECT_TRUE(IsLockedByAnother(path));
/// child.Say("go on");
/// EXPECT_EQ(child.Wait(), 0);
/// \endcode
///
/// The code may return nothing, or an int: the exit code. When an assertion failed in it, the child exits with
/// EXIT_FAILED_ASSERTION, whatever the code returns; with EXIT_OUT_OF_STEP when it waited in vain, and with
/// EXIT_EXCEPTION when an exception left the code, the reason of both on its standard error. It exits by `_exit`: no
/// destructors of statics, no leak check, open streams are not flushed.
///
/// The child has a copy of the thread that made it, and no others: make children before threads. ThreadSanitizer ends a
/// child that starts threads when its parent had several. On Linux the child is killed when the thread that made it
/// ends.
class Child : public Process {
public:
    static constexpr int EXIT_FAILED_ASSERTION = 100;
    static constexpr int EXIT_OUT_OF_STEP = 101;
    static constexpr int EXIT_EXCEPTION = 102;

    /// The other side, as the child sees it.
    class Parent {
    public:
        explicit Parent(Channel& channel) : channel_(channel) {}

        void Say(std::string_view word);

        /// Ends the child when the word does not come.
        void WaitFor(std::string_view word);

    private:
        Channel& channel_;
    };

    /// Starts the child. The code is called with a Parent&.
    template <class Code>
    explicit Child(Code code)
        : Child(IntCode{[&](Parent& parent) {
              if constexpr (std::is_void_v<std::invoke_result_t<Code&, Parent&>>) {
                  code(parent);
                  return 0;
              } else {
                  return code(parent);
              }
          }}) {}

    /// Unless its end was seen, waits for the child, which must exit with 0.
    ~Child();

    void Say(std::string_view word);

    /// \return false, with the test failed and the child killed, when the word does not come
    bool WaitFor(std::string_view word);

    /// Waits for the end.
    /// \return the exit code; for a child that a signal ended the signal's number, negative
    int Wait();

    /// Ends the child by a signal, and waits for the end.
    /// \return as Wait()
    int Kill(int signal = SIGKILL);

private:
    struct IntCode {
        std::function<int(Parent&)> call;
    };

    explicit Child(IntCode const& code);

    std::unique_ptr<Channel> channel_;
};

} // namespace TestSupport

#endif
