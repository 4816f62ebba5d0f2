// Operations on files by their paths.

#include <Benchmarks/Others.h>
#include <Benchmarks/SameCalls.h>

#include <DataType/DateTime.h>
#include <FileSystem/File.h>

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace Benchmarks {
namespace {

/// Copies inside the kernel, which is the least work.
void CopyRaw(Name const& from, Name const& to) {
    constexpr std::size_t MUCH = 1UL << 30;
    int const source = Must(::open(from.Narrow(), O_RDONLY | O_CLOEXEC));
    int const target = Must(::open(to.Narrow(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
    while (Must(::copy_file_range(source, nullptr, target, nullptr, MUCH, 0)) > 0) {
    }
    Must(::close(target));
    Must(::close(source));
}

/// Copies through streams in the steps that the library promises.
void CopySame(Name const& from, Name const& to) {
    constexpr std::size_t STEP = 16384;
    std::unique_ptr<char[]> const buffer(new char[STEP]);
    FILE* const source = std::fopen(from.Narrow(), "r");
    Require(source != nullptr);
    Must(::fcntl(::fileno(source), F_SETFD, FD_CLOEXEC));
    FILE* const target = std::fopen(to.Narrow(), "w");
    Require(target != nullptr);
    Must(::fcntl(::fileno(target), F_SETFD, FD_CLOEXEC));
    std::size_t count = STEP;
    while (count == STEP) {
        count = std::fread(buffer.get(), 1, STEP, source);
        Require(std::fwrite(buffer.get(), 1, count, target) == count);
    }
    Require(std::fflush(target) == 0);
    std::fclose(target);
    std::fclose(source);
}

void AddCopies(std::string const& operation, Name const& from, Name const& to) {
    Add(operation + "/raw", [=] { CopyRaw(from, to); });
    Add(operation + "/same", [=] { CopySame(from, to); });
    Add(operation + "/wfs", [=] { WFileSystem::File::Copy(from.Wide(), to.Wide()); });
    Add(operation + "/std",
        [=] { std::filesystem::copy_file(from.narrow, to.narrow, std::filesystem::copy_options::overwrite_existing); });
#if WITH_BOOST
    Add(operation + "/boost", [=] {
        boost::filesystem::copy_file(from.narrow, to.narrow, boost::filesystem::copy_option::overwrite_if_exists);
    });
#endif
#if WITH_POCO
    Add(operation + "/poco", [=] { Poco::File(from.narrow).copyTo(to.narrow); });
#endif
#if WITH_GLIB
    Add(operation + "/glib", [=] {
        auto const source = MakeGFile(from);
        auto const target = MakeGFile(to);
        auto const flags = G_FILE_COPY_OVERWRITE;
        Require(g_file_copy(source.get(), target.get(), flags, nullptr, nullptr, nullptr, nullptr) != 0);
    });
#endif
#if WITH_APR
    AddPrepared(operation + "/apr", [=] {
        return [from, to, pool = std::make_unique<Pool>()] {
            Require(apr_file_copy(from.Narrow(), to.Narrow(), APR_FPROT_FILE_SOURCE_PERMS, pool->Get()) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    // It never overwrites.
    AddPrepared(operation + "/qt", [=] {
        return [source = ToQt(from), target = ToQt(to)] {
            QFile::remove(target);
            Require(QFile::copy(source, target));
        };
    });
#endif
}

struct stat StatusOf(Name const& name) {
    struct stat status;
    Must(::stat(name.Narrow(), &status));
    return status;
}

void AddSize(Name const& name) {
    for (char const* const who : {"raw", "same"}) {
        Add(std::string("size/") + who, [name] { benchmark::DoNotOptimize(StatusOf(name).st_size); });
    }
    Add("size/wfs", [name] { benchmark::DoNotOptimize(WFileSystem::File::GetSize64(name.Wide())); });
    Add("size/std", [name] { benchmark::DoNotOptimize(std::filesystem::file_size(name.narrow)); });
#if WITH_BOOST
    Add("size/boost", [name] { benchmark::DoNotOptimize(boost::filesystem::file_size(name.narrow)); });
#endif
#if WITH_POCO
    Add("size/poco", [name] { benchmark::DoNotOptimize(Poco::File(name.narrow).getSize()); });
#endif
#if WITH_GLIB
    Add("size/glib", [name] {
        auto const file = MakeGFile(name);
        auto const info = MakeGPtr(
            g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_SIZE, G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
        benchmark::DoNotOptimize(g_file_info_get_size(info.get()));
    });
#endif
#if WITH_APR
    AddPrepared("size/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_finfo_t info;
            Require(apr_stat(&info, name.Narrow(), APR_FINFO_SIZE, pool->Get()) == APR_SUCCESS);
            benchmark::DoNotOptimize(info.size);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared(
        "size/qt", [name] { return [path = ToQt(name)] { benchmark::DoNotOptimize(QFileInfo(path).size()); }; });
#endif
}

void AddLastModified(Name const& name) {
    // To a date and a time of day, as the library gives it.
    for (char const* const who : {"raw", "same"}) {
        Add(std::string("last_modified/") + who, [name] {
            std::time_t const time = StatusOf(name).st_mtime;
            std::tm date;
            benchmark::DoNotOptimize(::gmtime_r(&time, &date));
            benchmark::DoNotOptimize(date);
        });
    }
    Add("last_modified/wfs", [name] {
        WDataType::DateTime date;
        WFileSystem::File::GetLastModified(name.Wide(), date);
        benchmark::DoNotOptimize(date);
    });
    Add("last_modified/std", [name] { benchmark::DoNotOptimize(std::filesystem::last_write_time(name.narrow)); });
#if WITH_BOOST
    Add("last_modified/boost", [name] { benchmark::DoNotOptimize(boost::filesystem::last_write_time(name.narrow)); });
#endif
#if WITH_POCO
    Add("last_modified/poco", [name] { benchmark::DoNotOptimize(Poco::File(name.narrow).getLastModified()); });
#endif
#if WITH_GLIB
    Add("last_modified/glib", [name] {
        auto const file = MakeGFile(name);
        auto const info = MakeGPtr(
            g_file_query_info(file.get(), G_FILE_ATTRIBUTE_TIME_MODIFIED, G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
        GDateTime* const date = g_file_info_get_modification_date_time(info.get());
        Require(date != nullptr);
        g_date_time_unref(date);
    });
#endif
#if WITH_APR
    AddPrepared("last_modified/apr", [name] {
        return [name, pool = std::make_unique<Pool>()] {
            apr_finfo_t info;
            Require(apr_stat(&info, name.Narrow(), APR_FINFO_MTIME, pool->Get()) == APR_SUCCESS);
            benchmark::DoNotOptimize(info.mtime);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("last_modified/qt", [name] {
        return [path = ToQt(name)] { benchmark::DoNotOptimize(QFileInfo(path).lastModified()); };
    });
#endif
}

/// There and back.
void AddMove(Name const& name, Name const& other) {
    for (char const* const who : {"raw", "same"}) {
        Add(std::string("move_twice/") + who, [=] {
            Must(std::rename(name.Narrow(), other.Narrow()));
            Must(std::rename(other.Narrow(), name.Narrow()));
        });
    }
    Add("move_twice/wfs", [=] {
        WFileSystem::File::Move(name.Wide(), other.Wide());
        WFileSystem::File::Move(other.Wide(), name.Wide());
    });
    Add("move_twice/std", [=] {
        std::filesystem::rename(name.narrow, other.narrow);
        std::filesystem::rename(other.narrow, name.narrow);
    });
#if WITH_BOOST
    Add("move_twice/boost", [=] {
        boost::filesystem::rename(name.narrow, other.narrow);
        boost::filesystem::rename(other.narrow, name.narrow);
    });
#endif
#if WITH_POCO
    Add("move_twice/poco", [=] {
        Poco::File(name.narrow).renameTo(other.narrow);
        Poco::File(other.narrow).renameTo(name.narrow);
    });
#endif
#if WITH_GLIB
    Add("move_twice/glib", [=] {
        auto const first = MakeGFile(name);
        auto const second = MakeGFile(other);
        auto const flags = G_FILE_COPY_OVERWRITE;
        Require(g_file_move(first.get(), second.get(), flags, nullptr, nullptr, nullptr, nullptr) != 0);
        Require(g_file_move(second.get(), first.get(), flags, nullptr, nullptr, nullptr, nullptr) != 0);
    });
#endif
#if WITH_APR
    AddPrepared("move_twice/apr", [=] {
        return [name, other, pool = std::make_unique<Pool>()] {
            Require(apr_file_rename(name.Narrow(), other.Narrow(), pool->Get()) == APR_SUCCESS);
            Require(apr_file_rename(other.Narrow(), name.Narrow(), pool->Get()) == APR_SUCCESS);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("move_twice/qt", [=] {
        return [first = ToQt(name), second = ToQt(other)] {
            Require(QFile::rename(first, second));
            Require(QFile::rename(second, first));
        };
    });
#endif
}

} // namespace

void AddWholeFiles() {
    Name const small = InPlace("copied-16KiB");
    Name const large = InPlace("copied-64MiB");
    MakeFile(small, 16384);
    MakeFile(large, 64UL << 20);
    AddCopies("copy_16KiB", small, InPlace("copy-16KiB"));
    AddCopies("copy_64MiB", large, InPlace("copy-64MiB"));
    AddSize(small);
    AddLastModified(small);
    Name const moved = InPlace("moved");
    MakeFile(moved, 1);
    AddMove(moved, InPlace("moved-away"));
}

} // namespace Benchmarks
