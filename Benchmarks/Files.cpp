// Short work on a file: opened, a little transferred, and closed.

#include <Benchmarks/Others.h>
#include <Benchmarks/SameCalls.h>

#include <FileSystem/File.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>

#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace Benchmarks {
namespace {

constexpr unsigned long PAGE = 4096;
constexpr unsigned long RECORD = 64;

char buffer[PAGE];

void ReadAll(int fd, unsigned long n) {
    Require(::read(fd, buffer, n) == static_cast<ssize_t>(n));
}

void WriteAll(int fd, unsigned long n) {
    Require(::write(fd, buffer, n) == static_cast<ssize_t>(n));
}

/// A stream without a buffer of its own, which a single transfer does not need.
template <class Stream>
void OpenUnbuffered(Stream& stream, Name const& name, std::ios::openmode mode) {
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(name.narrow, mode);
    Require(stream.good());
}

void AddRead(Name const& name) {
    Add("read_4KiB/raw", [name] {
        int const fd = Must(::open(name.Narrow(), O_RDONLY | O_CLOEXEC));
        ReadAll(fd, PAGE);
        Must(::close(fd));
    });
    Add("read_4KiB/same", [name] {
        int const fd = OpenReadableBare(name.Narrow());
        ReadAll(fd, PAGE);
        Must(::close(fd));
    });
    Add("read_4KiB/wfs", [name] {
        auto const file = WFileSystem::OpenReadableFile(name.Wide());
        file->Read(buffer, PAGE);
    });
    Add("read_4KiB/std", [name] {
        std::ifstream file;
        OpenUnbuffered(file, name, std::ios::in | std::ios::binary);
        Require(file.read(buffer, PAGE).good());
    });
#if WITH_POCO
    Add("read_4KiB/poco", [name] {
        Poco::FileInputStream file(name.narrow);
        Require(file.read(buffer, PAGE).good());
    });
#endif
#if WITH_GLIB
    Add("read_4KiB/glib", [name] {
        auto const file = MakeGFile(name);
        auto const stream = MakeGPtr(g_file_read(file.get(), nullptr, nullptr));
        gsize count = 0;
        Require(g_input_stream_read_all(G_INPUT_STREAM(stream.get()), buffer, PAGE, &count, nullptr, nullptr) != 0);
    });
#endif
#if WITH_APR
    AddPrepared("read_4KiB/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_file_t* const file = OpenByAPR(*pool, name, APR_FOPEN_READ | APR_FOPEN_BINARY);
            Require(apr_file_read_full(file, buffer, PAGE, nullptr) == APR_SUCCESS);
            Require(apr_file_close(file) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("read_4KiB/qt", [name] {
        return [path = ToQt(name)] {
            QFile file(path);
            Require(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
            Require(file.read(buffer, PAGE) == PAGE);
        };
    });
#endif
}

void AddLockedRead(Name const& name) {
    Add("read_4KiB_locked/raw", [name] {
        int const fd = Must(::open(name.Narrow(), O_RDONLY | O_CLOEXEC));
        LockBare(fd, F_RDLCK);
        ReadAll(fd, PAGE);
        LockBare(fd, F_UNLCK);
        Must(::close(fd));
    });
    Add("read_4KiB_locked/same", [name] {
        int const fd = OpenReadableBare(name.Narrow());
        LockBare(fd, F_RDLCK);
        ReadAll(fd, PAGE);
        LockBare(fd, F_UNLCK);
        Must(::close(fd));
    });
    Add("read_4KiB_locked/wfs", [name] {
        auto const file = WFileSystem::OpenReadableFile(name.Wide());
        WFileSystem::ReadableFile::ReadSmartLock const lock(*file);
        file->Read(buffer, PAGE);
    });
#if WITH_BOOST
    // A lock opens the file itself, and must go last: closing the stream before would drop it.
    Add("read_4KiB_locked/boost", [name] {
        boost::interprocess::file_lock fileLock(name.Narrow());
        boost::filesystem::ifstream file;
        file.rdbuf()->pubsetbuf(nullptr, 0);
        file.open(name.narrow, std::ios::in | std::ios::binary);
        fileLock.lock_sharable();
        Require(file.read(buffer, PAGE).good());
        fileLock.unlock_sharable();
    });
#endif
#if WITH_APR
    AddPrepared("read_4KiB_locked/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_file_t* const file = OpenByAPR(*pool, name, APR_FOPEN_READ | APR_FOPEN_BINARY);
            Require(apr_file_lock(file, APR_FLOCK_SHARED) == APR_SUCCESS);
            Require(apr_file_read_full(file, buffer, PAGE, nullptr) == APR_SUCCESS);
            Require(apr_file_unlock(file) == APR_SUCCESS);
            Require(apr_file_close(file) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
}

void AddUpdate(Name const& name) {
    Add("update_64B_locked/raw", [name] {
        int const fd = Must(::open(name.Narrow(), O_RDWR | O_CLOEXEC));
        LockBare(fd, F_WRLCK);
        Require(::pread(fd, buffer, RECORD, 0) == RECORD);
        Require(::pwrite(fd, buffer, RECORD, 0) == RECORD);
        LockBare(fd, F_UNLCK);
        Must(::close(fd));
    });
    Add("update_64B_locked/same", [name] {
        int const fd = OpenForWritingBare(name.Narrow(), O_RDWR);
        LockBare(fd, F_WRLCK);
        ReadAll(fd, RECORD);
        Must(::lseek(fd, 0, SEEK_SET));
        WriteAll(fd, RECORD);
        LockBare(fd, F_UNLCK);
        Must(::close(fd));
    });
    Add("update_64B_locked/wfs", [name] {
        auto const file = WFileSystem::OpenUpdateableFile(name.Wide(), WFileSystem::KEEP_FILE);
        {
            WFileSystem::UpdateableFile::WriteSmartLock const lock(*file);
            file->Read(buffer, RECORD);
            file->SetPosition(0);
            file->Write(static_cast<void const*>(buffer), RECORD);
        }
        file->CommitAndClose();
    });
#if WITH_BOOST
    Add("update_64B_locked/boost", [name] {
        boost::interprocess::file_lock fileLock(name.Narrow());
        boost::filesystem::fstream file;
        file.rdbuf()->pubsetbuf(nullptr, 0);
        file.open(name.narrow, std::ios::in | std::ios::out | std::ios::binary);
        fileLock.lock();
        file.read(buffer, RECORD);
        file.seekp(0);
        Require(file.write(buffer, RECORD).good());
        fileLock.unlock();
    });
#endif
#if WITH_APR
    AddPrepared("update_64B_locked/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_file_t* const file = OpenByAPR(*pool, name, APR_FOPEN_READ | APR_FOPEN_WRITE | APR_FOPEN_BINARY);
            Require(apr_file_lock(file, APR_FLOCK_EXCLUSIVE) == APR_SUCCESS);
            Require(apr_file_read_full(file, buffer, RECORD, nullptr) == APR_SUCCESS);
            apr_off_t position = 0;
            Require(apr_file_seek(file, APR_SET, &position) == APR_SUCCESS);
            Require(apr_file_write_full(file, buffer, RECORD, nullptr) == APR_SUCCESS);
            Require(apr_file_unlock(file) == APR_SUCCESS);
            Require(apr_file_close(file) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
}

void AddCreation(Name const& name) {
    Add("create_write_4KiB_delete/raw", [name] {
        int const fd = Must(::open(name.Narrow(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
        WriteAll(fd, PAGE);
        Must(::close(fd));
        Must(::unlink(name.Narrow()));
    });
    Add("create_write_4KiB_delete/same", [name] {
        int const fd = OpenForWritingBare(name.Narrow(), O_WRONLY);
        WriteAll(fd, PAGE);
        Must(::close(fd));
        Must(::unlink(name.Narrow()));
    });
    Add("create_write_4KiB_delete/wfs", [name] {
        auto const file = WFileSystem::OpenWriteableFile(name.Wide(), WFileSystem::DELETE_FILE);
        file->Write(static_cast<void const*>(buffer), PAGE);
        file->CommitAndClose();
        Require(WFileSystem::File::Delete(name.Wide(), nullptr));
    });
    Add("create_write_4KiB_delete/std", [name] {
        std::ofstream file;
        OpenUnbuffered(file, name, std::ios::out | std::ios::binary);
        file.write(buffer, PAGE);
        file.close();
        Require(file.good());
        std::filesystem::remove(name.narrow);
    });
#if WITH_BOOST
    Add("create_write_4KiB_delete/boost", [name] {
        boost::filesystem::ofstream file;
        file.rdbuf()->pubsetbuf(nullptr, 0);
        file.open(name.narrow, std::ios::out | std::ios::binary);
        file.write(buffer, PAGE);
        file.close();
        Require(file.good());
        boost::filesystem::remove(name.narrow);
    });
#endif
#if WITH_POCO
    Add("create_write_4KiB_delete/poco", [name] {
        Poco::FileOutputStream file(name.narrow);
        file.write(buffer, PAGE);
        file.close();
        Require(file.good());
        Poco::File(name.narrow).remove();
    });
#endif
#if WITH_GLIB
    Add("create_write_4KiB_delete/glib", [name] {
        auto const file = MakeGFile(name);
        auto const stream = MakeGPtr(g_file_create(file.get(), G_FILE_CREATE_NONE, nullptr, nullptr));
        GOutputStream* const output = G_OUTPUT_STREAM(stream.get());
        Require(g_output_stream_write_all(output, buffer, PAGE, nullptr, nullptr, nullptr) != 0);
        Require(g_output_stream_close(output, nullptr, nullptr) != 0);
        Require(g_file_delete(file.get(), nullptr, nullptr) != 0);
    });
#endif
#if WITH_APR
    AddPrepared("create_write_4KiB_delete/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_file_t* const file =
                OpenByAPR(*pool, name, APR_FOPEN_WRITE | APR_FOPEN_CREATE | APR_FOPEN_TRUNCATE | APR_FOPEN_BINARY);
            Require(apr_file_write_full(file, buffer, PAGE, nullptr) == APR_SUCCESS);
            Require(apr_file_close(file) == APR_SUCCESS);
            Require(apr_file_remove(name.Narrow(), pool->Get()) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("create_write_4KiB_delete/qt", [name] {
        return [path = ToQt(name)] {
            QFile file(path);
            Require(file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered));
            Require(file.write(buffer, PAGE) == PAGE);
            file.close();
            Require(file.remove());
        };
    });
#endif
}

} // namespace

void AddFiles() {
    Name const page = InPlace("page");
    MakeFile(page, PAGE);
    AddRead(page);
    AddLockedRead(page);
    AddUpdate(page);
    AddCreation(InPlace("new"));
}

} // namespace Benchmarks
