// The shape of the four interfaces. Programs that were compiled against them rely on it.

#include <FileSystem/GenericFile.h>
#include <FileSystem/PrivateSource/ReadableFileImpl.h>
#include <FileSystem/PrivateSource/UpdateableFileImpl.h>
#include <FileSystem/PrivateSource/WriteableFileImpl.h>

#include <Tests/Support/VirtualSlots.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace WFileSystem;
using TestSupport::SlotOf;

// A base class can't be cast back to a class that has it as a virtual base.
template <class Derived, class Base, class = void>
constexpr bool IS_VIRTUAL_BASE = std::is_base_of_v<Base, Derived>;

template <class Derived, class Base>
constexpr bool
    IS_VIRTUAL_BASE<Derived, Base, std::void_t<decltype(static_cast<Derived*>(static_cast<Base*>(nullptr)))>> = false;

static_assert(IS_VIRTUAL_BASE<ReadableFile, GenericFile>);
static_assert(IS_VIRTUAL_BASE<WriteableFile, GenericFile>);
static_assert(IS_VIRTUAL_BASE<UpdateableFile, ReadableFile>);
static_assert(IS_VIRTUAL_BASE<UpdateableFile, WriteableFile>);
static_assert(IS_VIRTUAL_BASE<ReadableFileImpl, ReadableFile>);
static_assert(IS_VIRTUAL_BASE<WriteableFileImpl, WriteableFile>);
static_assert(IS_VIRTUAL_BASE<UpdateableFileImpl, UpdateableFile>);

template <class Interface>
constexpr bool IS_PURE = std::is_abstract_v<Interface>&& std::has_virtual_destructor_v<Interface>;

static_assert(IS_PURE<GenericFile> && IS_PURE<ReadableFile> && IS_PURE<WriteableFile> && IS_PURE<UpdateableFile>);

static_assert(std::is_same_v<std::underlying_type_t<IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED>, int>);
static_assert(TRUNCATE_FILE == 0);
static_assert(DELETE_FILE == 1);
static_assert(KEEP_FILE == 2);

#ifdef __GXX_ABI_VERSION

// In the Itanium ABI an object without data is as large as its pointers to tables of virtual functions.
static_assert(sizeof(GenericFile) == sizeof(void*));
static_assert(sizeof(ReadableFile) == sizeof(void*));
static_assert(sizeof(WriteableFile) == sizeof(void*));
static_assert(sizeof(UpdateableFile) == 2 * sizeof(void*));

// The destructor has two slots: one destroys, the other frees the memory as well.
constexpr unsigned int DESTRUCTORS = 2;
constexpr unsigned int GENERIC = 7;

TEST(GenericFileTest, TheSlotsFollowTheDestructorInTheirOrder) {
    unsigned int slot = DESTRUCTORS;
    EXPECT_EQ(SlotOf(&GenericFile::GetPath), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::IsAccessibleViaPath), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::GetSize), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::GetPosition), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::MovePosition), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::SetPosition), slot++);
    EXPECT_EQ(SlotOf(&GenericFile::SetPositionToEnd), slot++);
    EXPECT_EQ(slot, DESTRUCTORS + GENERIC);
}

TEST(GenericFileTest, TheSlotsOfAReadableFileFollowThoseOfAGenericFile) {
    unsigned int slot = DESTRUCTORS + GENERIC;
    EXPECT_EQ(SlotOf(static_cast<void (ReadableFile::*)(void*, unsigned long)>(&ReadableFile::Read)), slot++);
    EXPECT_EQ(
        SlotOf(static_cast<void (ReadableFile::*)(WDataType::Binary&, unsigned long)>(&ReadableFile::Read)), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::ReadLittleEndian), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::ReadLine), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::GetReadTimer), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::GetReadLockTimer), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::ReadLock), slot++);
    EXPECT_EQ(SlotOf(&ReadableFile::ReadUnlock), slot++);
}

TEST(GenericFileTest, TheSlotsOfAWriteableFileFollowThoseOfAGenericFile) {
    unsigned int slot = DESTRUCTORS + GENERIC;
    EXPECT_EQ(SlotOf(static_cast<void (WriteableFile::*)(char const*, unsigned long)>(&WriteableFile::Write)), slot++);
    EXPECT_EQ(SlotOf(static_cast<void (WriteableFile::*)(void const*, unsigned long)>(&WriteableFile::Write)), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::WriteLittleEndian), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::Flush), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::Truncate), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::CommitAndClose), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::GetWriteTimer), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::GetWriteLockTimer), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::WriteLock), slot++);
    EXPECT_EQ(SlotOf(&WriteableFile::WriteUnlock), slot++);
}

#endif

} // namespace
