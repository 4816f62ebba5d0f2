#ifndef WFILESYSTEM_BENCHMARKS_OTHERS_H
#define WFILESYSTEM_BENCHMARKS_OTHERS_H

// The other libraries, as far as they were found, and what calling them takes in several groups.

#include <Benchmarks/Support.h>

#include <filesystem>
#include <fstream>

#if WITH_BOOST
#include <boost/filesystem.hpp>
#include <boost/interprocess/sync/file_lock.hpp>
#endif

#if WITH_POCO
#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/Glob.h>
#include <Poco/Path.h>
#endif

#if WITH_GLIB
#include <gio/gio.h>

#include <memory>

namespace Benchmarks {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};

template <class Object>
using GPtr = std::unique_ptr<Object, Unref>;

template <class Object>
GPtr<Object> MakeGPtr(Object* object) {
    return GPtr<Object>(object);
}

inline GPtr<GFile> MakeGFile(Name const& name) {
    return MakeGPtr(g_file_new_for_path(name.Narrow()));
}

} // namespace Benchmarks
#endif

#if WITH_APR
#include <apr_file_info.h>
#include <apr_file_io.h>
#include <apr_fnmatch.h>
#include <apr_general.h>

namespace Benchmarks {

/// A pool that is emptied again and again, as programs with APR do.
class Pool {
public:
    Pool() {
        apr_initialize();
        Require(apr_pool_create(&pool_, nullptr) == APR_SUCCESS);
    }
    Pool(Pool const&) = delete;
    Pool& operator=(Pool const&) = delete;
    ~Pool() {
        apr_pool_destroy(pool_);
        apr_terminate();
    }

    apr_pool_t* Get() const { return pool_; }
    void Clear() const { apr_pool_clear(pool_); }

private:
    apr_pool_t* pool_ = nullptr;
};

inline apr_file_t* OpenByAPR(Pool const& pool, Name const& name, apr_int32_t flags) {
    apr_file_t* file = nullptr;
    Require(apr_file_open(&file, name.Narrow(), flags, APR_FPROT_OS_DEFAULT, pool.Get()) == APR_SUCCESS);
    return file;
}

} // namespace Benchmarks
#endif

#if WITH_QT
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

namespace Benchmarks {

inline QString ToQt(Name const& name) {
    return QString::fromStdString(name.narrow);
}

} // namespace Benchmarks
#endif

#endif
