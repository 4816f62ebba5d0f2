#ifndef WFILESYSTEM_BASE_MODULEMAINPTR_H
#define WFILESYSTEM_BASE_MODULEMAINPTR_H

/// \file
/// \brief The counted pointer to a library's one module object.

// The one step upwards in the order of folders: the atomic cell itself stands on nothing.
#include <Synch/Atomic.h>

#include <atomic>
#include <unistd.h>

namespace WBase {

/// Creates a module object for the first who asks and destroys it with the last who leaves.
///
/// As a global it is ready before anything runs: it needs no static initialiser and leaves nothing to do at exit.
///
/// \tparam Interface what Get() gives
/// \tparam Implementation what is created
template <class Interface, class Implementation>
class ModuleMainPtr {
public:
    constexpr ModuleMainPtr() noexcept = default;
    ModuleMainPtr(ModuleMainPtr const&) = delete;
    ModuleMainPtr& operator=(ModuleMainPtr const&) = delete;

    /// Counts one more user and creates the module object for the first.
    /// \throws what the module's constructor or the allocation throws; the count is then as before
    /// \par Threads
    ///     Any thread; waits, without limit, while another thread is inside Initialize or Finalize.
    void Initialize() {
        BusyWord const busy(busy_);
        if (count_ == 0) {
            pointer_.store(new Implementation(), std::memory_order_release);
        }
        ++count_;
    }

    /// Counts one user less and destroys the module object with the last.
    /// \warning A Finalize without its Initialize wraps the count below zero; no check is made.
    /// \par Threads
    ///     As Initialize.
    void Finalize() noexcept {
        BusyWord const busy(busy_);
        if (count_-- == 1) {
            delete pointer_.load(std::memory_order_relaxed);
            pointer_.store(nullptr, std::memory_order_relaxed);
        }
    }

    /// The module object, or null when there is none. It stays as long as one user is counted.
    /// \par Threads
    ///     Any thread, also while another one is inside Initialize or Finalize.
    Interface* Get() const noexcept { return pointer_.load(std::memory_order_acquire); }

private:
    /// Holds the busy word for a scope.
    class BusyWord {
    public:
        explicit BusyWord(WSynch::AtomicLong& word) noexcept : word_(word) {
            while (WSynch_AtomicSet(word_, BUSY) == BUSY) {
                ::sleep(0);
            }
        }
        BusyWord(BusyWord const&) = delete;
        BusyWord& operator=(BusyWord const&) = delete;
        ~BusyWord() { WSynch_AtomicSet(word_, 0); }

    private:
        static constexpr long BUSY = 0x12345678;

        WSynch::AtomicLong& word_;
    };

    WSynch::AtomicLong busy_{0};
    unsigned int count_ = 0;
    std::atomic<Implementation*> pointer_{nullptr};
};

} // namespace WBase

#endif
