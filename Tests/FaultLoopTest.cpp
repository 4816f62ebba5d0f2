// One row an operation: what it does when each of its system calls and allocations fails. The driver is in FaultLoop.h.

#include <FileSystem/Directory.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/FileSystem.h>
#include <FileSystem/Path.h>
#include <Tests/FaultLoop.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Recorder.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace FaultLoop {

namespace {

using TestSupport::Unobserved;
using WFileSystem::Directory;
using WFileSystem::File;
using WFileSystem::FileImpl;
using WFileSystem::Path;

using Operation = std::function<void(World&)>;
using Reactions = std::vector<Reaction>;

// Preparations

void OpenData(World& world) {
    world.fd = ::open((world.scratch / "data").c_str(), O_RDWR | O_CLOEXEC);
}

void OpenDataAndCopy(World& world) {
    world.otherFd = ::open((world.scratch / "data").c_str(), O_RDONLY | O_CLOEXEC);
    world.fd = ::open((world.scratch / "copy").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0664);
}

void OpenDataStream(World& world) {
    world.stream = std::fopen((world.scratch / "data").c_str(), "r+");
}

void OpenDataAndCopyStreams(World& world) {
    OpenDataStream(world);
    world.otherStream = std::fopen((world.scratch / "copy").c_str(), "w");
}

void AgeData(World& world) {
    world.MakeDirectories();
    utimbuf const times = {1000, 1000};
    ::chmod((world.scratch / "data").c_str(), 0600);
    ::utime((world.scratch / "data").c_str(), &times);
}

void UseScratchForTemporaryFiles(World& world) {
    world.temporary.emplace("TMPDIR", world.scratch.Path());
}

/// An operation on World::fd, which is open on "data".
Row OnDescriptor(std::string name, Operation operation, Reactions reactions) {
    return {std::move(name), OpenData, std::move(operation), std::move(reactions)};
}

/// An operation on World::stream.
Row OnStream(std::string name, Operation operation, Reactions reactions) {
    return {std::move(name), OpenDataStream, std::move(operation), std::move(reactions)};
}

/// An operation on paths.
Row OnPaths(std::string name, Operation operation, Reactions reactions) {
    return {std::move(name), nullptr, std::move(operation), std::move(reactions)};
}

/// An operation on paths, with directories.
Row OnDirectories(std::string name, Operation operation, Reactions reactions) {
    return {std::move(name), &World::MakeDirectories, std::move(operation), std::move(reactions)};
}

void CloseUnobserved(int fd) {
    Unobserved const unobserved;
    ::close(fd);
}

void CloseUnobserved(FILE* stream) {
    Unobserved const unobserved;
    std::fclose(stream);
}

/// Drops the locks that could not be given up otherwise.
void CloseData(World& world) {
    CloseUnobserved(std::exchange(world.fd, -1));
}

/// Says the result, and what the report tells then.
template <class Ask>
void SayWithReport(World& world, Ask ask) {
    WBase::Message report;
    world.Say(ask(&report));
    if (report.GetMessage()[0] != L'\0') {
        world.Say(report.GetMessage());
    }
}

std::vector<Row> DescriptorRows() {
    constexpr char COPY_FAILURE[] = "WFileSystem::File::Copy: ::write failed for file #{fd}.";
    constexpr char FLUSH_FAILURE[] = "WFileSystem::File::Flush: ::fdatasync failed.";
    return {
        OnPaths(
            "OpenDescriptor",
            [](World& world) {
                CloseUnobserved(
                    File::OpenDescriptor(world.Wide("new"), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED));
            },
            {Reports("open(", "WFileSystem::File::OpenDescriptor: ::open failed for '{}/new'.").Repeated()}),
        {"CopyDescriptor",
         OpenDataAndCopy,
         [](World& world) { world.Say(File::Copy(world.otherFd, world.fd, *world.buffer)); },
         {Passes("read(").OnceOnly(), // the write that a failed read becomes fails in its turn
          Reports("write(#1", COPY_FAILURE).For({SHORT}).After({"copy=f"}),
          Reports("write(#2", COPY_FAILURE).For({SHORT}).After({"copy=first\nsec"}), Reports("write(#1", COPY_FAILURE),
          Reports("write(#2", COPY_FAILURE).After({"copy=first\nse"}),
          Reports("fsync(", FLUSH_FAILURE).Repeated().After({"copy=first\nsecond"})}},
        OnDescriptor(
            "FlushDescriptor", [](World& world) { world.Say(File::Flush(world.fd)); },
            {Reports("fsync(", FLUSH_FAILURE).Repeated()}),
        OnDescriptor(
            "GetSizeOfDescriptor", [](World& world) { world.Say(File::GetSize(world.fd)); },
            {Reports("fstat(", "WFileSystem::File::GetSize: ::fstat failed for #{fd}.").Repeated()}),
        OnDescriptor(
            "TruncateDescriptor", [](World& world) { world.Say(File::Truncate(world.fd, 5)); },
            {Reports("ftruncate(", "WFileSystem::File::Truncate: ::ftruncate failed.").Repeated()}),
        OnDescriptor(
            "GetPositionOfDescriptor", [](World& world) { world.Say(File::GetPosition(world.fd)); },
            {Reports("lseek(", "WFileSystem::File::GetPosition: ::lseek failed.")}),
        OnDescriptor(
            "MovePositionOfDescriptor", [](World& world) { world.Say(File::MovePosition(world.fd, 3)); },
            {Reports("lseek(", "WFileSystem::File::MovePosition: ::lseek failed.")}),
        OnDescriptor(
            "SetPositionOfDescriptor", [](World& world) { world.Say(File::SetPosition(world.fd, 3)); },
            {Reports("lseek(", "WFileSystem::File::SetPosition: ::lseek failed.")}),
        OnDescriptor(
            "WriteLockDescriptor",
            [](World& world) {
                File::WriteLock(world.fd, false);
                File::Unlock(world.fd);
                CloseData(world);
            },
            {Passes("fcntl(F_SETLK, F_UNLCK").Repeated(),
             Reports("fcntl(F_SETLK", "WFileSystem::File::WriteLock: Failed to lock file #{fd}.").Repeated()}),
        OnDescriptor(
            "ReadLockDescriptor",
            [](World& world) {
                File::ReadLock(world.fd, true);
                File::Unlock(world.fd);
                CloseData(world);
            },
            {Reports("fcntl(F_SETLKW", "WFileSystem::File::ReadLock: Failed to lock file #{fd}.").Repeated()}),
        OnDescriptor(
            "GuardDescriptor",
            [](World& world) {
                {
                    File::WriteSmartLock lock(world.fd);
                    lock.Unlock();
                    lock.Lock();
                }
                CloseData(world);
            },
            {Reports("fcntl(F_SETLKW", "WFileSystem::File::WriteLock: Failed to lock file #{fd}.").Repeated()}),
    };
}

std::vector<Row> StreamRows() {
    constexpr char READ_FAILURE[] = "WFileSystem::File::Read: ::fread failed.";
    constexpr char WRITE_FAILURE[] = "WFileSystem::File::Write: Failed.";
    constexpr char FLUSH_FAILURE[] = "WFileSystem::File::Flush: ::fflush failed.";
    constexpr char MOVE_FAILURE[] = "WFileSystem::File::MovePosition: ::fseeko failed.";
    return {
        OnPaths(
            "OpenStream",
            [](World& world) {
                CloseUnobserved(File::OpenStream(world.Wide("new"), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED));
            },
            {Reports("fopen(", "WFileSystem::File::OpenStream: ::fopen failed for '{}/new'.")}),
        {"CopyStream",
         OpenDataAndCopyStreams,
         [](World& world) { world.Say(File::Copy(world.stream, world.otherStream, *world.buffer)); },
         {Reports("fread(", READ_FAILURE), Reports("fwrite(", WRITE_FAILURE), Reports("fflush(", FLUSH_FAILURE)}},
        OnStream(
            "ReadStream",
            [](World& world) {
                File::Read(world.stream, *world.buffer, 5);
                world.Say(std::string_view(world.buffer->GetBuffer(), world.buffer->GetSize()));
            },
            {Reports("fread(", READ_FAILURE)}),
        OnStream(
            "WriteStream", [](World& world) { world.Say(File::Write(world.stream, "ABC", 0)); },
            {Reports("fwrite(", WRITE_FAILURE)}),
        OnStream(
            "ReadLineOfStream",
            [](World& world) {
                File::ReadLine(world.stream, *world.buffer);
                world.Say(std::string_view(world.buffer->GetBuffer(), world.buffer->GetSize()));
            },
            {Reports("fgets(", "WFileSystem::File::ReadLine: ::fgets failed.")}),
        OnStream(
            "FlushStream", [](World& world) { world.Say(File::Flush(world.stream)); },
            {Reports("fflush(", FLUSH_FAILURE)}),
        OnStream(
            "GetSizeOfStream", [](World& world) { world.Say(File::GetSize(world.stream)); },
            {Reports("fstat(", "WFileSystem::File::GetSize: ::fstat failed for #{fd}.").Repeated()}),
        OnStream(
            "TruncateStream", [](World& world) { world.Say(File::Truncate(world.stream, 5)); },
            {Reports("ftruncate(", "WFileSystem::File::Truncate: ::ftruncate failed.").Repeated()}),
        OnStream(
            "GetPositionOfStream", [](World& world) { world.Say(File::GetPosition(world.stream)); },
            {Reports("ftello(", "WFileSystem::File::GetPosition: ::ftello failed.")}),
        OnStream(
            "MovePositionOfStream", [](World& world) { world.Say(File::MovePosition(world.stream, 3)); },
            {Reports("fseeko(", MOVE_FAILURE)}),
        OnStream(
            "SetPositionOfStream", [](World& world) { world.Say(File::SetPosition(world.stream, 3)); },
            {Reports("fseeko(", "WFileSystem::File::SetPosition: ::fseeko failed.")}),
        OnStream(
            "CopyBlock", // of which nothing gets through before the last step
            [](World& world) {
                File::SetPosition(world.stream, 4);
                world.Say(File::CopyBlock(world.stream, *world.buffer, 0, 0));
            },
            {Reports("fseeko(4, SEEK_SET", "WFileSystem::File::SetPosition: ::fseeko failed."),
             Reports("ftello(", "WFileSystem::File::GetPosition: ::ftello failed."),
             Reports("fstat(", "WFileSystem::File::GetSize: ::fstat failed for #{fd}.").Repeated(),
             Reports("fread(", READ_FAILURE), Reports("fwrite(", WRITE_FAILURE), Reports("fseeko(", MOVE_FAILURE)}),
    };
}

std::vector<Row> WholeFileRows() {
    constexpr char NO_SOURCE[] = "WFileSystem::File::OpenStream: ::fopen failed for '{}/data'.";
    constexpr char NO_TARGET[] = "WFileSystem::File::OpenStream: ::fopen failed for '{}/copy'.";
    constexpr char READ_FAILURE[] = "WFileSystem::File::Read: ::fread failed.";
    constexpr char WRITE_FAILURE[] = "WFileSystem::File::Write: Failed.";
    constexpr char FLUSH_FAILURE[] = "WFileSystem::File::Flush: ::fflush failed.";
    constexpr char COPY_FAILURE[] = "WFileSystem::File::Copy: ::write failed for file #{fd}.";
    constexpr char NO_ATTRIBUTES[] = "Failed to get attributes of file '{}/data'.";
    std::vector<std::string> const emptied = {"copy="};
    std::vector<std::string> const copied = {"copy=first\nsecond"};
    Reactions const copying = {
        Reports("fopen(\"{}/data", NO_SOURCE), Reports("fopen(\"{}/copy", NO_TARGET),
        Reports("fread(", READ_FAILURE).After(emptied), Reports("fwrite(", WRITE_FAILURE).After(emptied),
        Reports("fflush(", FLUSH_FAILURE).After(copied)}; // by the closing
    return {
        OnPaths(
            "Delete",
            [](World& world) {
                SayWithReport(world, [&](auto* report) { return File::Delete(world.Wide("data"), report); });
            },
            {Returns("unlink(", "[0][Failed to delete file '{}/data'.\n{e}]")}),
        OnPaths(
            "DeleteWithoutReport", [](World& world) { world.Say(File::Delete(world.Wide("data"), nullptr)); },
            {Returns("unlink(", "[0]")}),
        OnPaths(
            "Move", [](World& world) { File::Move(world.Wide("data"), world.Wide("moved")); },
            {Wraps("rename(", "Failed to move file '{}/data' to '{}/moved'.")}),
        WithHalfWay(
            OnPaths(
                "CopyPathToPath", [](World& world) { File::Copy(world.Wide("data"), world.Wide("copy")); }, copying),
            {emptied}),
        WithHalfWay(
            OnStream(
                "CopyStreamToPath", [](World& world) { File::Copy(world.stream, world.Wide("copy")); }, copying),
            {emptied}),
        WithHalfWay(
            OnDescriptor(
                "CopyDescriptorToPath", [](World& world) { File::Copy(world.fd, world.Wide("copy")); },
                {Reports("open(", "WFileSystem::File::OpenDescriptor: ::open failed for '{}/copy'.").Repeated(),
                 Passes("read(").For({SHORT}), Passes("read(").OnceOnly(),
                 // No call has failed, so the error number is what the allocation of the buffer left.
                 Reports("write(", COPY_FAILURE)
                     .For({SHORT})
                     .As(TestSupport::Allocations::ERRNO_AFTERWARDS)
                     .After({"copy=f"}),
                 Reports("write(", COPY_FAILURE).After(emptied),
                 Reports("fsync(", "WFileSystem::File::Flush: ::fdatasync failed.").Repeated().After(copied)}),
            {emptied}),
        {"CopyAttributes",
         AgeData,
         [](World& world) {
             SayWithReport(world, [&](auto* report) {
                 return File::CopyAttributes(world.Wide("data"), world.Wide("dir/a"), report);
             });
         },
         {Wraps("stat(", NO_ATTRIBUTES).Repeated(),
          Returns("utime(", "[0][Failed to change times of file '{}/dir/a'.\n{e}]").After({"dir/a=a 0600"}),
          Returns("chown(", "[0][Failed to change owner of file '{}/dir/a'.\n{e}]").After({"dir/a=a old 0600"}),
          Returns("chmod(", "[0][Failed to change permissions of file '{}/dir/a'.\n{e}]").After({"dir/a=a old"})}},
        {"CopyAttributesWithoutReport",
         AgeData,
         [](World& world) { world.Say(File::CopyAttributes(world.Wide("data"), world.Wide("dir/a"), nullptr)); },
         {Wraps("stat(", NO_ATTRIBUTES).Repeated(), Passes("utime(").After({"dir/a=a 0600"}), Passes("chown("),
          Passes("chmod(").After({"dir/a=a old"})}},
        OnPaths(
            "GetSizeOfPath",
            [](World& world) { world.Say(static_cast<long long>(File::GetSize64(world.Wide("data")))); },
            {Wraps("stat(", NO_ATTRIBUTES).Repeated()}),
        {"GetLastModified",
         AgeData,
         [](World& world) {
             WDataType::DateTime time;
             File::GetLastModified(world.Wide("data"), time);
             world.Say(time.GetYear());
         },
         {Wraps("stat(", NO_ATTRIBUTES).Repeated()}},
    };
}

std::vector<Row> DirectoryRows() {
    constexpr char NO_DIRECTORY[] = "WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.";
    std::string const left = "[0][Failed to delete directory '{}/dir'.\nDirectory not empty\n";
    auto const plain = [](std::string call, std::string text, int code) {
        return Reaction{std::move(call), Effect::PLAIN, std::move(text)}.For({code});
    };
    return {
        OnDirectories(
            "IsDirectory", [](World& world) { world.Say(Path::IsDirectory(world.Wide("dir"))); },
            {Returns("stat(", "[0]")}),
        OnDirectories(
            "IsFile", [](World& world) { world.Say(Path::IsFile(world.Wide("data"))); }, {Returns("stat(", "[0]")}),
        OnDirectories(
            "IsReadable", [](World& world) { world.Say(Path::IsReadable(world.Wide("data"))); },
            {Returns("access(", "[0]")}),
        OnDirectories(
            "IsWriteable", [](World& world) { world.Say(Path::IsWriteable(world.Wide("data"))); },
            {Returns("access(", "[0]")}),
        OnDirectories(
            "ToAbsolute", [](World& world) { world.Say(Path::ToAbsolute(L"data")); },
            {Reports("getcwd(", NO_DIRECTORY)}),
        OnDirectories("Combine", [](World& world) { world.Say(Path::Combine(L"a/b", L"../c")); }, {}),
        OnDirectories(
            "GetFileNamesWithPattern",
            [](World& world) { world.Say(Path::GetFileNamesWithPattern(world.Wide("*"))->GetAt(1)); },
            {plain("glob(", "Unable to find file (GLOB_NOSPACE).", GLOB_NOSPACE),
             plain("glob(", "Unable to find file (GLOB_ABORTED).", GLOB_ABORTED)}),
        OnDirectories(
            "CreateDirectory", [](World& world) { Directory::Create(world.Wide("new"), false); },
            {Wraps("mkdir(", "Failed to create directory '{}/new'.")}),
        WithHalfWay(
            OnDirectories(
                "CreateDirectoryWithParents", [](World& world) { Directory::Create(world.Wide("new/b/c"), true); },
                {Passes("stat(\"{}/new"), // is missing anyway
                 Wraps("stat(", "Failed to create directory '{}'.").As(EEXIST).OnceOnly(),
                 Wraps("mkdir(\"{}/new\"", "Failed to create directory '{}/new'."),
                 Wraps("mkdir(\"{}/new/b\"", "Failed to create directory '{}/new/b'.").After({"new=/"}),
                 Wraps("mkdir(", "Failed to create directory '{}/new/b/c'.").After({"new=/", "new/b=/"})}),
            {{"new=/"}, {"new=/", "new/b=/"}}),
        OnDirectories(
            "DeleteEmptyDirectory",
            [](World& world) {
                SayWithReport(world, [&](auto* report) { return Directory::DeleteEmpty(world.Wide("empty"), report); });
            },
            {Returns("rmdir(", "[0][Failed to delete directory '{}/empty'.\n{e}]")}),
        WithHalfWay(
            OnDirectories(
                "DeleteRecursively",
                [](World& world) {
                    SayWithReport(
                        world, [&](auto* report) { return Directory::DeleteRecursively(world.Wide("dir"), report); });
                },
                {Returns(
                     "glob(\"{}/dir/*",
                     "[0][Failed to delete directory '{}/dir'.\nUnable to find file (GLOB_NOSPACE).]")
                     .For({GLOB_NOSPACE}),
                 Returns(
                     "glob(\"{}/dir/*",
                     "[0][Failed to delete directory '{}/dir'.\nUnable to find file (GLOB_ABORTED).]"),
                 Returns(
                     "glob(", left + "Failed to delete directory '{}/dir/sub'.\nUnable to find file (GLOB_NOSPACE).]")
                     .For({GLOB_NOSPACE})
                     .After({"-dir/a"}),
                 Returns(
                     "glob(", left + "Failed to delete directory '{}/dir/sub'.\nUnable to find file (GLOB_ABORTED).]")
                     .After({"-dir/a"}),
                 Passes("stat(\"{}/dir/a"),
                 Returns("stat(", left + "Failed to delete file '{}/dir/sub'.\nIs a directory]").After({"-dir/a"}),
                 Returns("unlink(", left + "Failed to delete file '{}/dir/a'.\n{e}]").After({"-dir/sub"}),
                 Returns("rmdir(\"{}/dir/sub", left + "Failed to delete directory '{}/dir/sub'.\n{e}]")
                     .After({"-dir/a"}),
                 Returns("rmdir(", "[0][Failed to delete directory '{}/dir'.\n{e}]").After({"-dir/a", "-dir/sub"})}),
            {{"-dir/a"}, {"-dir/a", "-dir/sub"}}),
        OnDirectories(
            "GetCurrentWorkingDirectory", [](World& world) { world.Say(WFileSystem::GetCurrentWorkingDirectory()); },
            {Reports("getcwd(", NO_DIRECTORY)}),
        OnDirectories(
            "SetCurrentWorkingDirectory",
            [](World& world) { WFileSystem::SetCurrentWorkingDirectory(world.Wide("empty")); },
            {Reports("chdir(", "WFileSystem::SetCurrentWorkingDirectory: ::chdir failed for '{}/empty'.")}),
        {"GetTemporaryPath",
         UseScratchForTemporaryFiles,
         [](World& world) { world.Say(WFileSystem::GetTemporaryPath()); },
         {Returns("stat(", "[/tmp]")}},
        {"CreateTemporaryFile",
         UseScratchForTemporaryFiles,
         [](World& world) { world.Say(WFileSystem::CreateTemporaryFile(L"temp.")); },
         {Passes("stat("), // the system goes by the environment itself
          Reports("tempnam(", "WFileSystem::CreateTemporaryFile: ::tempnam failed for 'temp.'."),
          Reports("open(", "WFileSystem::File::OpenDescriptor: ::open failed for '{}/temp.*'.").Repeated(),
          Passes("close(").For({EINTR}).Leaks(1)}}, // called once; here the system has not closed it then
    };
}

std::vector<Row> FileImplRows() {
    constexpr char SET_FAILURE[] = "Failed to set current position of file '{}/data'.";
    constexpr char GET_FAILURE[] = "Failed to get current position of file '{}/data'.";
    constexpr char LOCK_FAILURE[] = "Failed to lock file '{}/data'.";
    constexpr char NO_ATTRIBUTES[] = "[0][Failed to get attributes of file '{}/data'.\n{e}]";
    auto const locking = [](bool (*lock)(wchar_t const*, int, bool), bool dontWait) {
        return [=](World& world) {
            world.Say(lock(world.Wide("data"), world.fd, dontWait));
            FileImpl::Unlock(world.fd);
            CloseData(world);
        };
    };
    return {
        OnDescriptor(
            "GetSize", [](World& world) { world.Say(FileImpl::GetSize(world.Wide("data"), world.fd)); },
            {Wraps("fstat(", "Failed to get size of file '{}/data'.").Repeated()}),
        OnDescriptor(
            "Write", [](World& world) { FileImpl::Write(world.Wide("data"), world.fd, "ABCDEF", 0); },
            {Passes("write(").For({SHORT}),
             WrapsNothing("write(", "Failed to write 5 bytes to file '{}/data'.")
                 .For({SHORT_THEN_EIO})
                 .After({"data=Airst\nsecond"}),
             Wraps("write(", "Failed to write 6 bytes to file '{}/data'.").Repeated()}),
        OnDescriptor(
            "ReadBytes",
            [](World& world) {
                char bytes[7] = {};
                FileImpl::Read(world.Wide("data"), world.fd, bytes, 6);
                world.Say(bytes);
            },
            {Passes("read(").For({SHORT}),
             WrapsNothing("read(", "Failed to read 5 bytes from file '{}/data'.").For({SHORT_THEN_EIO}),
             Wraps("read(", "Failed to read 6 bytes from file '{}/data'.").Repeated()}),
        OnDescriptor(
            "ReadBeyondTheEnd",
            [](World& world) {
                char bytes[20] = {};
                try {
                    FileImpl::Read(world.Wide("data"), world.fd, bytes, sizeof bytes);
                } catch (WBase::Message const& message) {
                    world.Say(message.GetMessage());
                    world.Say(bytes);
                }
            },
            {Passes("read(").For({SHORT}),
             Returns("read(#1", "[Failed to read 20 bytes from file '{}/data'.\n{e}][]").Repeated(),
             Passes("read(#2").Repeated()}), // a failure after the first bytes is told like the end
        OnDescriptor(
            "ReadBuffer",
            [](World& world) {
                FileImpl::Read(world.Wide("data"), world.fd, *world.buffer, 0);
                world.Say(std::string_view(world.buffer->GetBuffer(), world.buffer->GetSize()));
            },
            {Passes("read(").For({SHORT}), Returns("read(", "[f]").For({SHORT_THEN_EIO}),
             Wraps("read(", "Failed to read 8 bytes from file '{}/data'.").Repeated()}),
        OnDescriptor(
            "ReadLine",
            [](World& world) {
                FileImpl::ReadLine(world.Wide("data"), world.fd, *world.buffer);
                world.Say(std::string_view(world.buffer->GetBuffer(), world.buffer->GetSize()));
            },
            {Passes("read(").For({SHORT}), Returns("read(", "[f]").For({SHORT_THEN_EIO}),
             Wraps("read(", "Failed to read 8 bytes from file '{}/data'.").Repeated(), Wraps("lseek(", SET_FAILURE)}),
        OnDescriptor(
            "MovePosition", [](World& world) { world.Say(FileImpl::MovePosition(world.Wide("data"), world.fd, 3)); },
            {Wraps("lseek(", SET_FAILURE)}),
        OnDescriptor(
            "SetPosition", [](World& world) { world.Say(FileImpl::SetPosition(world.Wide("data"), world.fd, 3)); },
            {Wraps("lseek(", SET_FAILURE)}),
        OnDescriptor(
            "SetPositionToEnd",
            [](World& world) { world.Say(FileImpl::SetPositionToEnd(world.Wide("data"), world.fd)); },
            {Wraps("lseek(", SET_FAILURE)}),
        OnDescriptor(
            "GetPosition", [](World& world) { world.Say(FileImpl::GetPosition(world.Wide("data"), world.fd)); },
            {Wraps("lseek(", GET_FAILURE)}),
        OnDescriptor(
            "Flush", [](World& world) { world.Say(FileImpl::Flush(world.Wide("data"), world.fd)); },
            {Wraps("fsync(", "Failed to flush file '{}/data'.").Repeated()}),
        OnDescriptor(
            "Truncate", [](World& world) { world.Say(FileImpl::Truncate(world.Wide("data"), world.fd)); },
            {Wraps("lseek(", GET_FAILURE), Wraps("ftruncate(", "Failed to truncate file '{}/data'.").Repeated()}),
        OnDescriptor(
            "CloseAndGroundHandle",
            [](World& world) { world.Say(FileImpl::CloseAndGroundHandle(world.Wide("data"), world.fd)); },
            {Wraps("close(", "Failed to close handle of file '{}/data'.").Repeated()}),
        OnDescriptor(
            "CloseAndGroundHandle_NoThrow",
            [](World& world) { world.Say(FileImpl::CloseAndGroundHandle_NoThrow(world.fd)); },
            {Returns("close(", "[-1]").Repeated()}),
        OnDescriptor(
            "TruncateFile_ThenCloseAndGroundHandle_NoThrow",
            [](World& world) { world.Say(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(world.fd)); },
            {Passes("lseek(").After({"data=first\nsecond"}), Passes("ftruncate(").For({EINTR}).Repeated(),
             Passes("ftruncate(").After({"data=first\nsecond"}),
             Returns("close(", "[-1]").Repeated().After({"data="})}),
        OnDescriptor(
            "DoesPathMatchFileHandle",
            [](World& world) {
                SayWithReport(world, [&](auto* report) {
                    return FileImpl::DoesPathMatchFileHandle(world.Wide("data"), world.fd, report);
                });
            },
            {Returns("fstat(", NO_ATTRIBUTES).Repeated(), Returns("stat(", NO_ATTRIBUTES).Repeated()}),
        OnDescriptor(
            "WriteLockWaiting", locking(FileImpl::WriteLock, false),
            {Wraps("fcntl(F_SETLKW", LOCK_FAILURE).Repeated()}),
        OnDescriptor(
            "WriteLockNotWaiting", locking(FileImpl::WriteLock, true),
            {Passes("fcntl(F_SETLK, F_UNLCK").Repeated(), Returns("fcntl(F_SETLK", "[0]").For({ENOTSUP}),
             Wraps("fcntl(F_SETLK", LOCK_FAILURE).Repeated()}),
        OnDescriptor(
            "ReadLockWaiting", locking(FileImpl::ReadLock, false), {Wraps("fcntl(F_SETLKW", LOCK_FAILURE).Repeated()}),
        OnDescriptor(
            "ReadLockNotWaiting", locking(FileImpl::ReadLock, true),
            {Passes("fcntl(F_SETLK, F_UNLCK").Repeated(), Returns("fcntl(F_SETLK", "[0]").For({ENOTSUP, EAGAIN}),
             Wraps("fcntl(F_SETLK", LOCK_FAILURE).Repeated()}),
    };
}

INSTANTIATE_TEST_SUITE_P(Descriptors, FaultLoopTest, ::testing::ValuesIn(DescriptorRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(Streams, FaultLoopTest, ::testing::ValuesIn(StreamRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(WholeFiles, FaultLoopTest, ::testing::ValuesIn(WholeFileRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(Directories, FaultLoopTest, ::testing::ValuesIn(DirectoryRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(NamedDescriptors, FaultLoopTest, ::testing::ValuesIn(FileImplRows()), NameOf);

} // namespace
} // namespace FaultLoop
