// A tree of 200 files, created and deleted; and the names that match a pattern, in their order.

#include <Benchmarks/Others.h>

#include <FileSystem/Directory.h>
#include <FileSystem/File.h>
#include <FileSystem/Path.h>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <glob.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace Benchmarks {
namespace {

/// A directory with 10 directories of 20 files each.
struct Tree {
    Name root = InPlace("tree");
    std::vector<Name> directories; // the root first
    std::vector<Name> files;

    Tree() {
        directories.push_back(root);
        for (int directory = 0; directory < 10; ++directory) {
            directories.push_back(InPlace("tree/directory-" + std::to_string(directory)));
            for (int file = 0; file < 20; ++file) {
                files.emplace_back(directories.back().narrow + "/file-" + std::to_string(file));
            }
        }
    }
};

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

using DirectoryPtr = std::unique_ptr<DIR, CloseDirectory>;

bool IsDot(char const* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

void CreateRaw(Tree const& tree) {
    for (Name const& directory : tree.directories) {
        Must(::mkdir(directory.Narrow(), 0777));
    }
    for (Name const& file : tree.files) {
        Must(::close(Must(::open(file.Narrow(), O_WRONLY | O_CREAT | O_CLOEXEC, 0664))));
    }
}

void CreateSame(Tree const& tree) {
    for (Name const& directory : tree.directories) {
        Must(::mkdir(directory.Narrow(), 0777));
    }
    for (Name const& file : tree.files) {
        int const fd = Must(::open(file.Narrow(), O_WRONLY | O_CREAT | O_NOCTTY, 0664));
        Must(::fcntl(fd, F_SETFD, FD_CLOEXEC));
        Must(::close(fd));
    }
}

void CreateByLibrary(Tree const& tree) {
    using WFileSystem::File;
    for (Name const& directory : tree.directories) {
        WFileSystem::Directory::Create(directory.Wide(), false);
    }
    for (Name const& file : tree.files) {
        Must(::close(File::OpenDescriptor(file.Wide(), File::OPEN_WRITE_CREATE, File::SHARE_IGNORED)));
    }
}

/// Relative to open directories, by what the directory tells about its entries.
void DeleteRaw(int parent, char const* name) {
    int const fd = Must(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    DirectoryPtr const directory(::fdopendir(fd));
    Require(directory != nullptr);
    while (dirent const* const entry = ::readdir(directory.get())) {
        if (IsDot(entry->d_name)) {
            continue;
        }
        if (entry->d_type == DT_DIR) {
            DeleteRaw(fd, entry->d_name);
        } else {
            Must(::unlinkat(fd, entry->d_name, 0));
        }
    }
    Must(::unlinkat(parent, name, AT_REMOVEDIR));
}

/// Through a pattern, and with a look at each match.
void DeleteSame(std::string const& path) {
    glob_t matches = {};
    int const result = ::glob((path + "/*").c_str(), 0, nullptr, &matches);
    Require(result == 0 || result == GLOB_NOMATCH);
    for (std::size_t index = 0; index < matches.gl_pathc; ++index) {
        char const* const entry = matches.gl_pathv[index];
        struct stat status;
        if (::stat(entry, &status) == 0 && S_ISDIR(status.st_mode)) {
            DeleteSame(entry);
        } else {
            Must(::unlink(entry));
        }
    }
    ::globfree(&matches);
    Must(::rmdir(path.c_str()));
}

#if WITH_GLIB
void DeleteByGLib(GFile* file) {
    auto const entries = MakeGPtr(g_file_enumerate_children(
        file, G_FILE_ATTRIBUTE_STANDARD_NAME "," G_FILE_ATTRIBUTE_STANDARD_TYPE, G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS,
        nullptr, nullptr));
    Require(entries != nullptr);
    GFileInfo* info = nullptr;
    GFile* child = nullptr;
    while (g_file_enumerator_iterate(entries.get(), &info, &child, nullptr, nullptr) != 0 && info != nullptr) {
        if (g_file_info_get_file_type(info) == G_FILE_TYPE_DIRECTORY) {
            DeleteByGLib(child);
        } else {
            Require(g_file_delete(child, nullptr, nullptr) != 0);
        }
    }
    Require(g_file_delete(file, nullptr, nullptr) != 0);
}
#endif

using TreePtr = std::shared_ptr<Tree const>;

template <class Create>
void AddCreation(std::string const& who, TreePtr const& tree, Create create) {
    auto const prepare = [tree] {
        if (::access(tree->root.Narrow(), F_OK) == 0) {
            DeleteRaw(AT_FDCWD, tree->root.Narrow());
        }
    };
    AddAfter("create_tree/" + who, prepare, [tree, create] { create(*tree); });
}

template <class Delete>
void AddDeletion(std::string const& who, TreePtr const& tree, Delete deleteTree) {
    auto const prepare = [tree] {
        if (::access(tree->root.Narrow(), F_OK) != 0) {
            CreateRaw(*tree);
        }
    };
    AddAfter("delete_tree/" + who, prepare, [tree, deleteTree] { deleteTree(tree->root); });
}

void AddTrees() {
    auto const tree = std::make_shared<Tree const>();
    AddCreation("raw", tree, CreateRaw);
    AddCreation("same", tree, CreateSame);
    AddCreation("wfs", tree, CreateByLibrary);
    AddCreation("std", tree, [](Tree const& all) {
        for (Name const& directory : all.directories) {
            std::filesystem::create_directory(directory.narrow);
        }
        for (Name const& file : all.files) {
            Require(std::ofstream(file.narrow).good());
        }
    });
#if WITH_BOOST
    AddCreation("boost", tree, [](Tree const& all) {
        for (Name const& directory : all.directories) {
            boost::filesystem::create_directory(directory.narrow);
        }
        for (Name const& file : all.files) {
            Require(boost::filesystem::ofstream(file.narrow).good());
        }
    });
#endif
#if WITH_POCO
    AddCreation("poco", tree, [](Tree const& all) {
        for (Name const& directory : all.directories) {
            Poco::File(directory.narrow).createDirectory();
        }
        for (Name const& file : all.files) {
            Poco::File(file.narrow).createFile();
        }
    });
#endif
#if WITH_GLIB
    AddCreation("glib", tree, [](Tree const& all) {
        for (Name const& directory : all.directories) {
            Require(g_file_make_directory(MakeGFile(directory).get(), nullptr, nullptr) != 0);
        }
        for (Name const& file : all.files) {
            Require(MakeGPtr(g_file_create(MakeGFile(file).get(), G_FILE_CREATE_NONE, nullptr, nullptr)) != nullptr);
        }
    });
#endif
#if WITH_APR
    AddCreation("apr", tree, [](Tree const& all) {
        Pool const pool;
        for (Name const& directory : all.directories) {
            Require(apr_dir_make(directory.Narrow(), APR_FPROT_OS_DEFAULT, pool.Get()) == APR_SUCCESS);
        }
        for (Name const& file : all.files) {
            Require(apr_file_close(OpenByAPR(pool, file, APR_FOPEN_WRITE | APR_FOPEN_CREATE)) == APR_SUCCESS);
        }
    });
#endif
#if WITH_QT
    AddCreation("qt", tree, [](Tree const& all) {
        QDir const directories;
        for (Name const& directory : all.directories) {
            Require(directories.mkdir(ToQt(directory)));
        }
        for (Name const& file : all.files) {
            Require(QFile(ToQt(file)).open(QIODevice::WriteOnly));
        }
    });
#endif

    AddDeletion("raw", tree, [](Name const& root) { DeleteRaw(AT_FDCWD, root.Narrow()); });
    AddDeletion("same", tree, [](Name const& root) { DeleteSame(root.narrow); });
    AddDeletion("wfs", tree, [](Name const& root) { WFileSystem::Directory::DeleteRecursively(root.Wide(), nullptr); });
    AddDeletion("std", tree, [](Name const& root) { std::filesystem::remove_all(root.narrow); });
#if WITH_BOOST
    AddDeletion("boost", tree, [](Name const& root) { boost::filesystem::remove_all(root.narrow); });
#endif
#if WITH_POCO
    AddDeletion("poco", tree, [](Name const& root) { Poco::File(root.narrow).remove(true); });
#endif
#if WITH_GLIB
    AddDeletion("glib", tree, [](Name const& root) { DeleteByGLib(MakeGFile(root).get()); });
#endif
#if WITH_QT
    AddDeletion("qt", tree, [](Name const& root) { Require(QDir(ToQt(root)).removeRecursively()); });
#endif
}

constexpr std::size_t ENTRIES = 1000;

/// The entries that match, with the directory in front, sorted: as glob gives them.
void ListRaw(Name const& directory) {
    DirectoryPtr const entries(::opendir(directory.Narrow()));
    Require(entries != nullptr);
    std::vector<std::unique_ptr<char[]>> paths;
    std::size_t const prefix = directory.narrow.size();
    while (dirent const* const entry = ::readdir(entries.get())) {
        if (::fnmatch("*.txt", entry->d_name, FNM_PERIOD) == 0) {
            std::size_t const size = std::strlen(entry->d_name);
            std::unique_ptr<char[]> path(new char[prefix + size + 2]);
            std::memcpy(path.get(), directory.Narrow(), prefix);
            path[prefix] = '/';
            std::memcpy(path.get() + prefix + 1, entry->d_name, size + 1);
            paths.push_back(std::move(path));
        }
    }
    std::sort(paths.begin(), paths.end(), [](auto const& left, auto const& right) {
        return std::strcmp(left.get(), right.get()) < 0;
    });
    Require(paths.size() == ENTRIES);
}

/// For libraries whose directories are iterated.
template <class Iterator>
void ListByIterator(Name const& directory) {
    std::vector<std::string> paths;
    for (auto const& entry : Iterator(directory.narrow)) {
        if (entry.path().extension() == ".txt") {
            paths.push_back(entry.path().native());
        }
    }
    std::sort(paths.begin(), paths.end());
    Require(paths.size() == ENTRIES);
}

void AddPatterns() {
    Name const directory = InPlace("entries");
    Must(::mkdir(directory.Narrow(), 0777));
    for (std::size_t index = 0; index < ENTRIES; ++index) {
        MakeFile(Name(directory.narrow + "/entry-" + std::to_string(index) + ".txt"), 0);
    }
    Name const pattern(directory.narrow + "/*.txt");

    Add("list_1000_entries/raw", [directory] { ListRaw(directory); });
    Add("list_1000_entries/same", [pattern] {
        glob_t matches = {};
        Require(::glob(pattern.Narrow(), 0, nullptr, &matches) == 0);
        Require(matches.gl_pathc == ENTRIES);
        ::globfree(&matches);
    });
    Add("list_1000_entries/wfs",
        [pattern] { Require(WFileSystem::Path::GetFileNamesWithPattern(pattern.Wide())->GetCount() == ENTRIES); });
    Add("list_1000_entries/std", [directory] { ListByIterator<std::filesystem::directory_iterator>(directory); });
#if WITH_BOOST
    Add("list_1000_entries/boost", [directory] { ListByIterator<boost::filesystem::directory_iterator>(directory); });
#endif
#if WITH_POCO
    Add("list_1000_entries/poco", [pattern] {
        std::set<std::string> paths;
        Poco::Glob::glob(pattern.narrow, paths);
        Require(paths.size() == ENTRIES);
    });
#endif
#if WITH_GLIB
    Add("list_1000_entries/glib", [directory] {
        std::vector<std::string> paths;
        GDir* const entries = g_dir_open(directory.Narrow(), 0, nullptr);
        while (char const* const name = g_dir_read_name(entries)) {
            if (g_pattern_match_simple("*.txt", name) != 0) {
                paths.push_back(directory.narrow + '/' + name);
            }
        }
        g_dir_close(entries);
        std::sort(paths.begin(), paths.end());
        Require(paths.size() == ENTRIES);
    });
#endif
#if WITH_APR
    AddPrepared("list_1000_entries/apr", [pattern] {
        return [pattern, pool = std::make_unique<Pool>()] {
            apr_array_header_t* names = nullptr;
            Require(apr_match_glob(pattern.Narrow(), &names, pool->Get()) == APR_SUCCESS);
            Require(names->nelts == ENTRIES);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("list_1000_entries/qt", [directory] {
        return [path = ToQt(directory)] {
            QFileInfoList const entries =
                QDir(path).entryInfoList({QStringLiteral("*.txt")}, QDir::NoFilter, QDir::Name);
            Require(entries.size() == ENTRIES);
        };
    });
#endif
}

} // namespace

void AddDirectories() {
    AddTrees();
    AddPatterns();
}

} // namespace Benchmarks
