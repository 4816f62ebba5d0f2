#ifndef WFILESYSTEM_SYNCH_ATOMIC_H
#define WFILESYSTEM_SYNCH_ATOMIC_H

/// \file
/// \brief The atomic integer cell and the three functions that change it.

#include <atomic>

namespace WSynch {
class AtomicLong;
}

/// Gives the cell a value and returns the one that it had.
long WSynch_AtomicSet(WSynch::AtomicLong& cell, long value) noexcept;
/// Adds 1 and returns the new value.
long WSynch_AtomicIncrement(WSynch::AtomicLong& cell) noexcept;
/// Subtracts 1 and returns the new value.
long WSynch_AtomicDecrement(WSynch::AtomicLong& cell) noexcept;

namespace WSynch {

/// An integer that threads share. Only the WSynch_Atomic… functions change it; all accesses are sequentially
/// consistent.
class AtomicLong {
public:
    /// Begins with a value.
    constexpr explicit AtomicLong(int initial) noexcept : value_(initial) {}
    AtomicLong(AtomicLong const&) = delete;
    AtomicLong& operator=(AtomicLong const&) = delete;
    ~AtomicLong() = default;

    /// The value at this moment.
    long Get() const noexcept { return value_.load(); }

private:
    friend long ::WSynch_AtomicSet(AtomicLong& cell, long value) noexcept;
    friend long ::WSynch_AtomicIncrement(AtomicLong& cell) noexcept;
    friend long ::WSynch_AtomicDecrement(AtomicLong& cell) noexcept;

    std::atomic<long> value_;
};

} // namespace WSynch

inline long WSynch_AtomicSet(WSynch::AtomicLong& cell, long value) noexcept {
    return cell.value_.exchange(value);
}

inline long WSynch_AtomicIncrement(WSynch::AtomicLong& cell) noexcept {
    return ++cell.value_;
}

inline long WSynch_AtomicDecrement(WSynch::AtomicLong& cell) noexcept {
    return --cell.value_;
}

#endif
