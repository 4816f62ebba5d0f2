#ifndef WFILESYSTEM_TESTS_SUPPORT_VIRTUALSLOTS_H
#define WFILESYSTEM_TESTS_SUPPORT_VIRTUALSLOTS_H

/// \file
/// \brief The order of a class's virtual functions, as the Itanium C++ ABI (GCC and Clang) lays it down.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace TestSupport {

/// The slots of a class with a virtual destructor declared first.
constexpr std::size_t SLOT_OF_DESTRUCTOR = 0;
constexpr std::size_t SLOT_OF_DELETING_DESTRUCTOR = 1;

/// The slot of a virtual function, counted from 0.
///
/// \code
/// EXPECT_EQ(TestSupport::SlotOf(&WBase::ReferenceCounted::AddRef), 2U);
/// \endcode
template <class MemberFunction>
std::size_t SlotOf(MemberFunction function) {
    // The first half of the pointer is the slot's offset in bytes, to which most platforms add 1.
    std::uintptr_t offset;
    static_assert(sizeof function == 2 * sizeof offset);
    std::memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void*);
}

/// Calls a function without arguments and result by its slot.
template <class Object>
void CallSlot(Object* object, std::size_t slot) {
    using Function = void (*)(Object*);
    Function const* table;
    std::memcpy(&table, static_cast<void const*>(object), sizeof table);
    table[slot](object);
}

} // namespace TestSupport

#endif
