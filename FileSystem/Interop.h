#ifndef WFILESYSTEM_FILESYSTEM_INTEROP_H
#define WFILESYSTEM_FILESYSTEM_INTEROP_H

/// \file
/// \brief The library beside the C++ standard library: paths, streams, ranges, error codes.
///
/// All of it is made of the library's public functions. Nothing here locks: take the guards of the file objects, and
/// let them live as long as the stream or range is used.

#include <Base/Conversion.h>
#include <Base/Exception.h>
#include <Base/Message.h>
#include <DataType/Binary.h>
#include <DataType/StringCollection.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/WriteableFile.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <ios>
#include <istream>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace WFileSystem {

/// How many bytes the buffers of this header hold where nothing else is said.
constexpr std::size_t STREAM_BUFFER_SIZE = 0x4000;

namespace Detail {

/// \throws WBase::StringConversionException as ToWidePath
inline std::wstring WidenPath(std::string const& path) {
    std::size_t const zero = path.find('\0');
    if (zero != std::string::npos) {
        WBase::StringConversionException failure(
            WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ,
            "Failed to convert UTF-8 text: the zero byte at index %1 would cut the path.");
        failure << static_cast<unsigned long>(zero);
        throw failure;
    }
    return std::wstring(WBase::UTF8ToWideChar(path.c_str(), false));
}

/// A buffer holds something, and no more than std::streambuf can count.
constexpr std::size_t FitBufferSize(std::size_t size) noexcept {
    constexpr std::size_t GIBIBYTE = 0x40000000;
    return std::clamp<std::size_t>(size, 1, GIBIBYTE);
}

/// Sets the position of a file in the terms of streams.
inline std::streamoff Seek(GenericFile& file, std::streamoff offset, std::ios_base::seekdir origin) {
    if (origin == std::ios_base::beg) {
        return file.SetPosition(offset);
    }
    return origin == std::ios_base::cur ? file.MovePosition(offset) : file.SetPosition(file.GetSize() + offset);
}

} // namespace Detail

/// The wide form of a path in UTF-8, for the functions that take a `wchar_t const*`.
///
/// \code
/// std::filesystem::path const folder = "orders";
/// auto const file = WFileSystem::OpenReadableFile(WFileSystem::ToWidePath(folder / "42.txt").c_str());
/// \endcode
/// \throws WBase::StringConversionException in the domain `WBase::MESSAGE_DOMAIN_ERRNO` with the ID `EILSEQ`:
///     - as WBase::UTF8ToWideChar, for a path that is no UTF-8;
///     - "Failed to convert UTF-8 text: the zero byte at index … would cut the path.", for a path with a NUL inside
/// \throws std::bad_alloc
/// \par Threads
///     Any thread.
inline std::wstring ToWidePath(std::string_view path) {
    return Detail::WidenPath(std::string(path));
}

/// The wide form of a path, whose bytes must be UTF-8; otherwise as above.
inline std::wstring ToWidePath(std::filesystem::path const& path) {
    return Detail::WidenPath(path.native());
}

/// As above, for what could be either: a `std::string`, a literal, a `char const*`, which may not be null.
template <class Text, class = std::enable_if_t<std::is_convertible_v<Text const&, std::string_view>>>
std::wstring ToWidePath(Text const& path) {
    return ToWidePath(std::string_view(path));
}

/// What a `std::istream` needs to read from a file object, from the file's position on.
///
/// A failure leaves every function as the exception that ReadableFile::Read or the positioning throws. A stream around
/// the buffer, however, catches it, sets its bad bit, and is silent, unless it was told otherwise:
///
/// \code
/// WFileSystem::ReadableFileBuffer buffer(*file);
/// std::istream stream(&buffer);
/// stream.exceptions(std::ios_base::badbit); // the stream throws what it caught
/// \endcode
///
/// ReadableFileStream is such a stream. With `output << &buffer` it is the fail bit of `output` instead.
///
/// \warning The buffer reads ahead: the file's position is beyond what the stream has given out, until `sync()`. What
///     was read ahead is kept when the record lock is dropped; call `sync()` after it was taken again.
/// \warning A read waits until the buffer is full or the file ends: give a pipe or a terminal a small one.
/// \warning A character can't be put back across a refill of the buffer.
/// \par Threads
///     As for the file object: one thread at a time.
class ReadableFileBuffer : public std::streambuf {
public:
    /// What BasicFileStream is made of.
    using File = ReadableFile;

    /// \param file the file, which must live as long as this object
    /// \param size how many bytes are read at once, from 1 to 1 GiB
    /// \throws std::bad_alloc
    explicit ReadableFileBuffer(ReadableFile& file, std::size_t size = STREAM_BUFFER_SIZE)
        : file_(file), bytes_(WDataType::CreateBinary(Detail::FitBufferSize(size), nullptr)) {}

    ReadableFileBuffer(ReadableFileBuffer const&) = delete;
    ReadableFileBuffer& operator=(ReadableFileBuffer const&) = delete;

protected:
    /// Reads the next bytes. A failure loses nothing: the next call tries again.
    int_type underflow() override {
        file_.Read(*bytes_, 0);
        if (bytes_->IsEmpty()) {
            return traits_type::eof(); // what was read before can still be put back
        }
        char* const begin = bytes_->GetBuffer();
        setg(begin, begin, begin + bytes_->GetSize());
        return traits_type::to_int_type(*begin);
    }

    /// Forgets what was read ahead, and sets the file's position to what comes next in the stream.
    int sync() override {
        if (gptr() != egptr()) {
            file_.MovePosition(gptr() - egptr());
        }
        setg(nullptr, nullptr, nullptr);
        return 0;
    }

    /// To tell the position changes nothing; setting it forgets what was read ahead.
    pos_type seekoff(off_type offset, std::ios_base::seekdir origin, std::ios_base::openmode which) override {
        if ((which & std::ios_base::in) == 0) {
            return pos_type(off_type(-1));
        }
        if (offset == 0 && origin == std::ios_base::cur) {
            return pos_type(file_.GetPosition() - (egptr() - gptr()));
        }
        sync();
        return pos_type(Detail::Seek(file_, offset, origin));
    }

    /// As seekoff(), from the start.
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return seekoff(off_type(position), std::ios_base::beg, which);
    }

private:
    ReadableFile& file_;
    std::unique_ptr<WDataType::Binary> bytes_;
};

/// What a `std::ostream` needs to write to a file object, from the file's position on.
///
/// Bytes are collected, and written when the buffer is full, at `sync()`, which `std::flush` calls, and before the
/// position is set. They count after WriteableFile::CommitAndClose only, so flush before that:
///
/// \code
/// WFileSystem::WriteableFileStream stream(*file);
/// stream << "12 apples\n" << std::flush;
/// file->Truncate();
/// file->CommitAndClose();
/// \endcode
///
/// A failure leaves every function as the exception that WriteableFile::Write or the positioning throws, and a stream
/// around the buffer needs to be told to pass it on, see ReadableFileBuffer. After a failed write it is not known which
/// of the bytes are in the file, so the buffer writes no more: every later function that would write throws the same
/// failure.
///
/// \warning Destruction writes what is left, never throws and does not commit: a failure goes unnoticed there.
/// \warning `sync()` and `std::flush` do not wait for the device, unlike WriteableFile::Flush.
/// \par Threads
///     As for the file object: one thread at a time.
class WriteableFileBuffer : public std::streambuf {
public:
    /// What BasicFileStream is made of.
    using File = WriteableFile;

    /// \param file the file, which must live until all is flushed
    /// \param size how many bytes are collected at most, from 1 to 1 GiB; what is longer is written at once
    /// \throws std::bad_alloc
    explicit WriteableFileBuffer(WriteableFile& file, std::size_t size = STREAM_BUFFER_SIZE)
        : file_(file), bytes_(Detail::FitBufferSize(size), '\0') {}

    WriteableFileBuffer(WriteableFileBuffer const&) = delete;
    WriteableFileBuffer& operator=(WriteableFileBuffer const&) = delete;

    ~WriteableFileBuffer() override {
        try {
            WriteCollected();
        } catch (...) { // NOLINT(bugprone-empty-catch): a destructor has nobody to tell
        }
    }

protected:
    /// Writes what was collected.
    int sync() override {
        WriteCollected();
        return 0;
    }

    /// Makes room for a character.
    int_type overflow(int_type character) override {
        WriteCollected();
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(character);
            pbump(1);
        }
        return traits_type::not_eof(character);
    }

    /// What fits goes into the buffer, as a whole; what does not fit into an empty one is written without a copy.
    std::streamsize xsputn(char const* text, std::streamsize count) override {
        if (count <= 0) {
            return 0;
        }
        if (count > epptr() - pptr()) {
            WriteCollected();
        }
        auto const size = static_cast<std::size_t>(count);
        if (size > bytes_.size()) {
            Write(text, size);
        } else {
            std::memcpy(pptr(), text, size);
            pbump(static_cast<int>(count));
        }
        return count;
    }

    /// To tell the position writes nothing.
    pos_type seekoff(off_type offset, std::ios_base::seekdir origin, std::ios_base::openmode which) override {
        if ((which & std::ios_base::out) == 0) {
            return pos_type(off_type(-1));
        }
        if (offset == 0 && origin == std::ios_base::cur) {
            return pos_type(file_.GetPosition() + (pptr() - pbase()));
        }
        WriteCollected();
        return pos_type(Detail::Seek(file_, offset, origin));
    }

    /// As seekoff(), from the start.
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return seekoff(off_type(position), std::ios_base::beg, which);
    }

private:
    void WriteCollected() {
        Write(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        setp(bytes_.data(), bytes_.data() + bytes_.size());
    }

    void Write(char const* bytes, std::size_t size) {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        if (size == 0) {
            return;
        }
        try {
            file_.Write(static_cast<void const*>(bytes), size);
        } catch (...) {
            failure_ = std::current_exception();
            setp(nullptr, nullptr); // so that every character comes here again
            throw;
        }
    }

    WriteableFile& file_;
    std::string bytes_;
    std::exception_ptr failure_;
};

/// A stream around one of the buffers, which throws what the buffer throws: the library's exceptions. Until its
/// `clear()` every later operation throws `std::ios_base::failure`.
/// \tparam Stream `std::istream` or `std::ostream`
/// \tparam Buffer ReadableFileBuffer or WriteableFileBuffer
template <class Stream, class Buffer>
class BasicFileStream : public Stream {
public:
    /// \param file the file, which must live as long as this object
    /// \param size the size of the buffer in bytes
    /// \throws std::bad_alloc
    explicit BasicFileStream(typename Buffer::File& file, std::size_t size = STREAM_BUFFER_SIZE)
        : Stream(nullptr), buffer_(file, size) {
        this->rdbuf(&buffer_);
        this->exceptions(std::ios_base::badbit);
    }

private:
    Buffer buffer_;
};

/// Reads from a file object; its failures are exceptions, its end is the end-of-file bit. See ReadableFileBuffer.
using ReadableFileStream = BasicFileStream<std::istream, ReadableFileBuffer>;

/// Writes to a file object; its failures are exceptions. See WriteableFileBuffer.
using WriteableFileStream = BasicFileStream<std::ostream, WriteableFileBuffer>;

/// The lines of a file object, from the file's position on, each without its line feed; the last one need not have one.
///
/// \code
/// for (std::string const& line : WFileSystem::ReadableFileLines(*file)) {
///     std::cout << line << '\n';
/// }
/// \endcode
///
/// It reads through a ReadableFileBuffer and not by ReadableFile::ReadLine. So a line comes whole, however long it is;
/// a zero byte is a byte like others, where ReadLine stops as if at the end of the file; the file need not be one that
/// can be positioned; and the file is read a buffer at a time, where ReadLine steps back after each line.
///
/// \warning The lines can be passed through once: begin() reads the first line that is left.
/// \warning It reads ahead: the file's position is beyond the line, and a loop that is left early does not put it back.
/// \warning A file without line feeds becomes one string.
/// \warning A carriage return before the line feed is a part of the line.
/// \par Threads
///     As for the file object: one thread at a time.
class ReadableFileLines {
public:
    class Iterator;

    /// \param file the file, which must live as long as this object
    /// \param size how many bytes are read at once, from 1 to 1 GiB; lines may be longer
    /// \throws std::bad_alloc
    explicit ReadableFileLines(ReadableFile& file, std::size_t size = STREAM_BUFFER_SIZE) : stream_(file, size) {}

    ReadableFileLines(ReadableFileLines const&) = delete;
    ReadableFileLines& operator=(ReadableFileLines const&) = delete;

    /// Reads the next line.
    /// \return its iterator, or end() where there is none
    /// \throws what ReadableFile::Read throws; std::bad_alloc; after either std::ios_base::failure
    Iterator begin();

    /// What every iterator comes to.
    static Iterator end() noexcept;

private:
    bool ReadNext() { return static_cast<bool>(std::getline(stream_, line_)); }

    ReadableFileStream stream_;
    std::string line_;
};

/// An input iterator. Its copies stand at one line, and going on with one of them takes them all to the next.
class ReadableFileLines::Iterator {
public:
    /// What `std::iterator_traits` asks for.
    /// \{
    using iterator_category = std::input_iterator_tag;
    using value_type = std::string;
    using difference_type = std::ptrdiff_t;
    using pointer = std::string const*;
    using reference = std::string const&;
    /// \}

    /// The end.
    Iterator() noexcept = default;

    /// The line; it lives until the next `++`.
    reference operator*() const noexcept { return lines_->line_; }
    /// As `*`.
    pointer operator->() const noexcept { return &lines_->line_; }

    /// Reads the next line.
    /// \throws as begin()
    Iterator& operator++() {
        if (!lines_->ReadNext()) {
            lines_ = nullptr;
        }
        return *this;
    }

    /// What `*iterator++` needs: the line of before.
    struct Former {
        std::string line;                              ///< a copy
        std::string operator*() const { return line; } ///< the copy
    };

    /// Reads the next line.
    /// \throws as begin()
    Former operator++(int) {
        Former former{lines_->line_};
        ++*this;
        return former;
    }

    /// Tells whether both are at the end, or both are not.
    friend bool operator==(Iterator const& left, Iterator const& right) noexcept { return left.lines_ == right.lines_; }
    /// The contrary.
    friend bool operator!=(Iterator const& left, Iterator const& right) noexcept { return !(left == right); }

private:
    friend class ReadableFileLines;

    explicit Iterator(ReadableFileLines* lines) noexcept : lines_(lines) {}

    ReadableFileLines* lines_ = nullptr; // null at the end
};

inline ReadableFileLines::Iterator ReadableFileLines::begin() {
    return Iterator(ReadNext() ? this : nullptr);
}

inline ReadableFileLines::Iterator ReadableFileLines::end() noexcept {
    return Iterator();
}

/// The system error that a message carries, to compare with `std::errc` or to hand to code that knows only error codes:
/// the first positive ID in the domain `WBase::MESSAGE_DOMAIN_ERRNO`, from the outermost message inwards, or, where
/// the chain has none, in `WBase::MESSAGE_DOMAIN_UNKNOWN`, which is where a system-call report has it.
///
/// \code
/// catch (WBase::Message const& message) {
///     if (WFileSystem::ToErrorCode(message) != std::errc::no_such_file_or_directory) {
///         throw;
///     }
/// }
/// \endcode
/// \return a code of `std::generic_category()`; one that says "no error" where the message carries no positive number
/// \par Threads
///     Any thread.
inline std::error_code ToErrorCode(WBase::Message const& message) noexcept {
    for (unsigned short const domain : {WBase::MESSAGE_DOMAIN_ERRNO, WBase::MESSAGE_DOMAIN_UNKNOWN}) {
        unsigned int index = 0;
        for (std::optional<int> id = message.FindID(domain); id; id = message.FindID(domain, ++index)) {
            if (*id > 0) {
                return {*id, std::generic_category()};
            }
        }
    }
    return {};
}

} // namespace WFileSystem

namespace WDataType {

/// An input iterator over a collection of strings, see begin().
class StringCollectionIterator {
public:
    /// What `std::iterator_traits` asks for.
    /// \{
    using iterator_category = std::input_iterator_tag;
    using value_type = wchar_t const*;
    using difference_type = std::ptrdiff_t;
    using pointer = wchar_t const* const*;
    using reference = wchar_t const*;
    /// \}

    /// Stands at the string with this index, which may be the count: the end.
    StringCollectionIterator(StringCollection const& collection, unsigned long index) noexcept
        : collection_(&collection), index_(index) {}

    /// The string; it lives as long as the collection.
    reference operator*() const { return collection_->GetAt(index_); }

    /// Goes to the next string.
    StringCollectionIterator& operator++() noexcept {
        ++index_;
        return *this;
    }

    /// Goes to the next string.
    /// \return where it stood
    StringCollectionIterator operator++(int) noexcept {
        StringCollectionIterator const former = *this;
        ++index_;
        return former;
    }

    /// Compares the places of two iterators of one collection.
    friend bool operator==(StringCollectionIterator const& left, StringCollectionIterator const& right) noexcept {
        return left.index_ == right.index_;
    }
    /// The contrary.
    friend bool operator!=(StringCollectionIterator const& left, StringCollectionIterator const& right) noexcept {
        return !(left == right);
    }

private:
    StringCollection const* collection_;
    unsigned long index_;
};

/// Lets a range-for go through a collection.
///
/// \code
/// auto const names = WFileSystem::Path::GetFileNamesWithPattern(L"/etc/*.conf");
/// for (wchar_t const* const name : *names) {
///     std::wcout << name << L'\n';
/// }
/// \endcode
/// \warning A string that is appended meanwhile is not seen by a loop that has begun.
inline StringCollectionIterator begin(StringCollection const& collection) noexcept {
    return {collection, 0};
}

/// The end of the collection as it is now.
inline StringCollectionIterator end(StringCollection const& collection) {
    return {collection, collection.GetCount()};
}

} // namespace WDataType

#endif
