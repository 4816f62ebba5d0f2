// Much data through an open file, by one call and by many; and a text by lines.

#include <Benchmarks/Others.h>
#include <Benchmarks/SameCalls.h>

#include <DataType/Binary.h>
#include <FileSystem/File.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace Benchmarks {
namespace {

constexpr unsigned long SIZE = 64UL << 20;
constexpr unsigned long PAGE = 4096;
/// What one of the library's calls of the system transfers.
constexpr unsigned long LIBRARY_CHUNK = 1UL << 20;

/// All bytes of the file.
char* Memory() {
    static std::unique_ptr<char[]> const memory(new char[SIZE]());
    return memory.get();
}

/// Closes a descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (fd_ != -1) {
            ::close(fd_);
        }
    }

    int Get() const { return fd_; }

private:
    int fd_;
};

/// Calls `transfer(data, n)` for all the memory, piece by piece.
template <class Transfer>
void ByPieces(unsigned long piece, Transfer transfer) {
    for (unsigned long done = 0; done < SIZE; done += piece) {
        transfer(Memory() + done, piece);
    }
}

void ReadFully(int fd, char* data, unsigned long n) {
    while (n > 0) {
        ssize_t const count = Must(::read(fd, data, n));
        Require(count > 0);
        data += count;
        n -= static_cast<unsigned long>(count);
    }
}

void WriteFully(int fd, char const* data, unsigned long n) {
    while (n > 0) {
        ssize_t const count = Must(::write(fd, data, n));
        data += count;
        n -= static_cast<unsigned long>(count);
    }
}

void AddBareTransfers(std::string const& who, Name const& name, unsigned long readPiece, std::string const& operation) {
    AddPrepared("read_" + operation + '/' + who, [name, readPiece] {
        return [readPiece, file = Descriptor(Must(::open(name.Narrow(), O_RDONLY | O_CLOEXEC)))] {
            Must(::lseek(file.Get(), 0, SEEK_SET));
            ByPieces(readPiece, [&](char* data, unsigned long n) { ReadFully(file.Get(), data, n); });
        };
    });
    AddPrepared("write_" + operation + '/' + who, [name, readPiece] {
        return [readPiece, file = Descriptor(Must(::open(name.Narrow(), O_WRONLY | O_CLOEXEC)))] {
            Must(::lseek(file.Get(), 0, SEEK_SET));
            ByPieces(readPiece, [&](char* data, unsigned long n) { WriteFully(file.Get(), data, n); });
        };
    });
}

void AddTransfersByOthers(Name const& name, unsigned long piece, std::string const& operation) {
    AddPrepared("read_" + operation + "/std", [name, piece] {
        return [piece, file = std::make_unique<std::ifstream>(name.narrow, std::ios::binary)] {
            file->seekg(0);
            ByPieces(piece, [&](char* data, unsigned long n) {
                Require(file->read(data, static_cast<std::streamsize>(n)).good());
            });
        };
    });
    AddPrepared("write_" + operation + "/std", [name, piece] {
        auto const mode = std::ios::in | std::ios::out | std::ios::binary;
        return [piece, file = std::make_unique<std::fstream>(name.narrow, mode)] {
            file->seekp(0);
            ByPieces(piece, [&](char* data, unsigned long n) { file->write(data, static_cast<std::streamsize>(n)); });
            Require(file->flush().good());
        };
    });
#if WITH_POCO
    AddPrepared("read_" + operation + "/poco", [name, piece] {
        return [piece, file = std::make_unique<Poco::FileInputStream>(name.narrow)] {
            file->seekg(0);
            ByPieces(piece, [&](char* data, unsigned long n) {
                Require(file->read(data, static_cast<std::streamsize>(n)).good());
            });
        };
    });
    AddPrepared("write_" + operation + "/poco", [name, piece] {
        auto const mode = std::ios::in | std::ios::out;
        return [piece, file = std::make_unique<Poco::FileStream>(name.narrow, mode)] {
            file->seekp(0);
            ByPieces(piece, [&](char* data, unsigned long n) { file->write(data, static_cast<std::streamsize>(n)); });
            Require(file->flush().good());
        };
    });
#endif
#if WITH_GLIB
    AddPrepared("read_" + operation + "/glib", [name, piece] {
        auto const file = MakeGFile(name);
        return [piece, stream = MakeGPtr(g_file_read(file.get(), nullptr, nullptr))] {
            Require(g_seekable_seek(G_SEEKABLE(stream.get()), 0, G_SEEK_SET, nullptr, nullptr) != 0);
            ByPieces(piece, [&](char* data, unsigned long n) {
                gsize count = 0;
                Require(g_input_stream_read_all(G_INPUT_STREAM(stream.get()), data, n, &count, nullptr, nullptr) != 0);
                Require(count == n);
            });
        };
    });
    AddPrepared("write_" + operation + "/glib", [name, piece] {
        auto const file = MakeGFile(name);
        return [piece, stream = MakeGPtr(g_file_open_readwrite(file.get(), nullptr, nullptr))] {
            Require(g_seekable_seek(G_SEEKABLE(stream.get()), 0, G_SEEK_SET, nullptr, nullptr) != 0);
            GOutputStream* const output = g_io_stream_get_output_stream(G_IO_STREAM(stream.get()));
            ByPieces(piece, [&](char* data, unsigned long n) {
                Require(g_output_stream_write_all(output, data, n, nullptr, nullptr, nullptr) != 0);
            });
        };
    });
#endif
#if WITH_APR
    auto const prepare = [name, piece](apr_int32_t flags, auto transfer) {
        return [name, piece, flags, transfer] {
            auto pool = std::make_unique<Pool>();
            apr_file_t* const file = OpenByAPR(*pool, name, flags | APR_FOPEN_BINARY);
            return [piece, transfer, file, pool = std::move(pool)] {
                apr_off_t position = 0;
                Require(apr_file_seek(file, APR_SET, &position) == APR_SUCCESS);
                ByPieces(piece, [&](char* data, unsigned long n) { Require(transfer(file, data, n) == APR_SUCCESS); });
            };
        };
    };
    AddPrepared("read_" + operation + "/apr", prepare(APR_FOPEN_READ, [](apr_file_t* file, char* data, apr_size_t n) {
                    return apr_file_read_full(file, data, n, nullptr);
                }));
    AddPrepared("write_" + operation + "/apr", prepare(APR_FOPEN_WRITE, [](apr_file_t* file, char* data, apr_size_t n) {
                    return apr_file_write_full(file, data, n, nullptr);
                }));
#endif
#if WITH_QT
    AddPrepared("read_" + operation + "/qt", [name, piece] {
        auto file = std::make_unique<QFile>(ToQt(name));
        Require(file->open(QIODevice::ReadOnly));
        return [piece, file = std::move(file)] {
            Require(file->seek(0));
            ByPieces(piece, [&](char* data, unsigned long n) {
                Require(file->read(data, static_cast<qint64>(n)) == static_cast<qint64>(n));
            });
        };
    });
    AddPrepared("write_" + operation + "/qt", [name, piece] {
        auto file = std::make_unique<QFile>(ToQt(name));
        Require(file->open(QIODevice::ReadWrite));
        return [piece, file = std::move(file)] {
            Require(file->seek(0));
            ByPieces(piece, [&](char* data, unsigned long n) {
                Require(file->write(data, static_cast<qint64>(n)) == static_cast<qint64>(n));
            });
            Require(file->flush());
        };
    });
#endif
}

/// \param piece how much one call of the program transfers
/// \param libraryPiece how much of it one call of the system transfers, through the library
void AddTransfersOf(Name const& name, unsigned long piece, unsigned long libraryPiece, std::string const& operation) {
    AddBareTransfers("raw", name, piece, operation);
    AddBareTransfers("same", name, libraryPiece, operation);
    AddPrepared("read_" + operation + "/wfs", [name, piece] {
        return [piece, file = WFileSystem::OpenReadableFile(name.Wide())] {
            file->SetPosition(0);
            ByPieces(piece, [&](char* data, unsigned long n) { file->Read(data, n); });
        };
    });
    AddPrepared("write_" + operation + "/wfs", [name, piece] {
        return [piece, file = WFileSystem::OpenUpdateableFile(name.Wide(), WFileSystem::KEEP_FILE)] {
            file->SetPosition(0);
            ByPieces(piece, [&](char* data, unsigned long n) { file->Write(static_cast<void const*>(data), n); });
        };
    });
    AddTransfersByOthers(name, piece, operation);
}

constexpr unsigned long LINES = 10000;
constexpr unsigned long LINE_BUFFER = 256;

struct CloseStream {
    void operator()(FILE* stream) const { std::fclose(stream); }
};

using Stream = std::unique_ptr<FILE, CloseStream>;

Stream OpenText(Name const& name) {
    return Stream(std::fopen(name.Narrow(), "re"));
}

/// Goes through the text block by block, and calls nobody.
unsigned long CountLinesOfBlocks(int fd) {
    static char block[65536];
    unsigned long lines = 0;
    while (ssize_t const count = Must(::read(fd, block, sizeof block))) {
        char const* const end = block + count;
        for (char const* next = block; next < end; ++lines) {
            auto const* const lineFeed =
                static_cast<char const*>(std::memchr(next, '\n', static_cast<std::size_t>(end - next)));
            if (lineFeed == nullptr) {
                break; // the rest of a line that the next block ends
            }
            next = lineFeed + 1;
        }
    }
    return lines;
}

/// Reads a buffer full for each line and goes back to the line's end.
unsigned long CountLinesByPositioning(int fd) {
    char buffer[LINE_BUFFER];
    unsigned long lines = 0;
    while (ssize_t const count = Must(::read(fd, buffer, sizeof buffer))) {
        auto const* const lineFeed =
            static_cast<char const*>(std::memchr(buffer, '\n', static_cast<std::size_t>(count)));
        Require(lineFeed != nullptr);
        Must(::lseek(fd, lineFeed + 1 - buffer - count, SEEK_CUR));
        ++lines;
    }
    return lines;
}

void AddBlocksOfLines(std::string const& name, Name const& text) {
    AddPrepared(name, [text] {
        return [file = Descriptor(Must(::open(text.Narrow(), O_RDONLY | O_CLOEXEC)))] {
            Must(::lseek(file.Get(), 0, SEEK_SET));
            Require(CountLinesOfBlocks(file.Get()) == LINES);
        };
    });
}

/// Reads the lines of a standard stream, from its beginning, each time it is called.
template <class InputStream>
auto ReadLinesOf(std::string const& path) {
    return [file = std::make_shared<InputStream>(path), line = std::string()]() mutable {
        file->clear();
        file->seekg(0);
        unsigned long lines = 0;
        while (std::getline(*file, line)) {
            ++lines;
        }
        Require(lines == LINES);
    };
}

void AddLinesOfStreams(Name const& text) {
    AddBlocksOfLines("lines_of_stream/raw", text);
    AddPrepared("lines_of_stream/same", [text] {
        return [stream = OpenText(text)] {
            Require(std::fseek(stream.get(), 0, SEEK_SET) == 0);
            char buffer[LINE_BUFFER];
            unsigned long lines = 0;
            while (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr) {
                benchmark::DoNotOptimize(std::strlen(buffer));
                ++lines;
            }
            Require(lines == LINES);
        };
    });
    AddPrepared("lines_of_stream/wfs", [text] {
        using WFileSystem::File;
        return [stream = Stream(File::OpenStream(text.Wide(), File::OPEN_READ, File::SHARE_IGNORED)),
                buffer = WDataType::CreateBinary(LINE_BUFFER, nullptr)] {
            File::SetPosition(stream.get(), 0);
            unsigned long lines = 0;
            for (;;) {
                File::ReadLine(stream.get(), *buffer);
                if (buffer->IsEmpty()) {
                    break;
                }
                ++lines;
            }
            Require(lines == LINES);
        };
    });
    AddPrepared("lines_of_stream/std", [text] { return ReadLinesOf<std::ifstream>(text.narrow); });
#if WITH_POCO
    AddPrepared("lines_of_stream/poco", [text] { return ReadLinesOf<Poco::FileInputStream>(text.narrow); });
#endif
#if WITH_GLIB
    Add("lines_of_stream/glib", [text] {
        auto const file = MakeGFile(text);
        auto const stream = MakeGPtr(g_file_read(file.get(), nullptr, nullptr));
        auto const data = MakeGPtr(g_data_input_stream_new(G_INPUT_STREAM(stream.get())));
        unsigned long lines = 0;
        while (char* const line = g_data_input_stream_read_line(data.get(), nullptr, nullptr, nullptr)) {
            g_free(line);
            ++lines;
        }
        Require(lines == LINES);
    });
#endif
#if WITH_APR
    AddPrepared("lines_of_stream/apr", [text] {
        auto pool = std::make_unique<Pool>();
        apr_file_t* const file = OpenByAPR(*pool, text, APR_FOPEN_READ | APR_FOPEN_BUFFERED);
        return [file, pool = std::move(pool)] {
            apr_off_t position = 0;
            Require(apr_file_seek(file, APR_SET, &position) == APR_SUCCESS);
            char buffer[LINE_BUFFER];
            unsigned long lines = 0;
            while (apr_file_gets(buffer, sizeof buffer, file) == APR_SUCCESS) {
                ++lines;
            }
            Require(lines == LINES);
        };
    });
#endif
#if WITH_QT
    AddPrepared("lines_of_stream/qt", [text] {
        auto file = std::make_unique<QFile>(ToQt(text));
        Require(file->open(QIODevice::ReadOnly));
        return [file = std::move(file)] {
            Require(file->seek(0));
            char buffer[LINE_BUFFER];
            unsigned long lines = 0;
            while (file->readLine(buffer, sizeof buffer) > 0) {
                ++lines;
            }
            Require(lines == LINES);
        };
    });
#endif
}

void AddLinesOfFileObjects(Name const& text) {
    AddBlocksOfLines("lines_of_file_object/raw", text);
    AddPrepared("lines_of_file_object/same", [text] {
        return [file = Descriptor(Must(::open(text.Narrow(), O_RDONLY | O_CLOEXEC)))] {
            Must(::lseek(file.Get(), 0, SEEK_SET));
            Require(CountLinesByPositioning(file.Get()) == LINES);
        };
    });
    AddPrepared("lines_of_file_object/wfs", [text] {
        return [file = WFileSystem::OpenReadableFile(text.Wide()),
                buffer = WDataType::CreateBinary(LINE_BUFFER, nullptr)] {
            file->SetPosition(0);
            unsigned long lines = 0;
            for (;;) {
                file->ReadLine(*buffer);
                if (buffer->IsEmpty()) {
                    break;
                }
                ++lines;
            }
            Require(lines == LINES);
        };
    });
}

} // namespace

void AddTransfers() {
    Name const large = InPlace("large");
    MakeFile(large, SIZE);
    AddTransfersOf(large, SIZE, LIBRARY_CHUNK, "64MiB_at_once");
    AddTransfersOf(large, PAGE, PAGE, "64MiB_by_4KiB");
    Name const text = InPlace("text");
    MakeFile(text, LINES * 64);
    AddLinesOfStreams(text);
    AddLinesOfFileObjects(text);
}

} // namespace Benchmarks
