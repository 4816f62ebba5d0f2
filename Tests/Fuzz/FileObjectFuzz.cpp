// File objects: whatever is done to one, in whatever order, it behaves as a text in memory would, and so does the file.

#include <FileSystem/Initializer.h>
#include <FileSystem/UpdateableFile.h>
#include <Tests/Fuzz/Fuzz.h>

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <unistd.h>

using Fuzz::FailureOf;
using Fuzz::Input;
using Fuzz::Require;
using Fuzz::RequireEqual;
using WBase::Message;
using WFileSystem::IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED;

namespace {

constexpr unsigned long BUFFER_SIZE = 16;

int FirstFreeDescriptor() {
    int const fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(fd);
    return fd;
}

/// One file object after another on one path, and what each and the path should hold.
class Session {
public:
    explicit Session(std::string const& path)
        : narrowPath_(path), path_(Fuzz::Widened(path)), secondName_(path + ".link") {
        std::filesystem::remove(narrowPath_);
    }
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;
    ~Session() { Close(); }

    void Step(Input& input) {
        char const operation = input.OneOf("RWUruxclpPmMekKwtiTfCnq");
        if (!file_ && std::string_view("RWUnq").find(operation) == std::string_view::npos) {
            return; // nothing is open
        }
        bool const isDone = Open(operation, input) || Replace(operation, input) || Read(operation, input) ||
                            Write(operation, input) || Position(operation, input);
        Require(isDone, std::string("the operation is known: ") + operation);
        CheckObject();
    }

private:
    std::string narrowPath_;
    std::wstring path_;
    std::string secondName_; // of the object's file, to see it where the path no longer names it

    std::unique_ptr<WFileSystem::GenericFile> file_;
    WFileSystem::ReadableFile* readable_ = nullptr;
    WFileSystem::WriteableFile* writeable_ = nullptr;

    IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy_ = WFileSystem::KEEP_FILE;
    std::optional<std::string> named_; // what the path's file holds
    std::string opened_;               // what the object's file holds
    bool isNamed_ = false;             // the path names the object's file
    bool isCommitted_ = false;
    unsigned long position_ = 0;

    std::unique_ptr<WDataType::Binary> buffer_ = WDataType::CreateBinary(BUFFER_SIZE, nullptr);

    std::string Rest() const { return opened_.substr(std::min(position_, opened_.size())); }

    template <class Action>
    void RequireFailure(Action action, std::wstring const& text, int error) {
        std::wstring const expected =
            text + L" file '" + path_ + L"'." + (error != 0 ? L'\n' + TestSupport::ErrorDescription(error) : L"");
        RequireEqual<std::wstring>(FailureOf(action, "the operation").GetMessage(), expected, "the failure");
    }

    /// Does it and answers true, or sees it fail because the file is closed.
    template <class Action>
    bool IsDone(Action action, std::wstring const& failureText) {
        if (isCommitted_) {
            RequireFailure(action, failureText, EBADF);
            return false;
        }
        action();
        return true;
    }

    bool Open(char operation, Input& input) {
        if (operation != 'R' && operation != 'W' && operation != 'U') {
            return false;
        }
        Close();
        policy_ = static_cast<IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED>(std::string_view("tdk").find(input.OneOf("tdk")));
        if (operation == 'R') {
            if (!named_) {
                auto const failure = FailureOf([&] { WFileSystem::OpenReadableFile(path_.c_str()); }, "the opening");
                RequireEqual<long long>(failure.GetID(), ENOENT, "the failure's ID");
                return true;
            }
            Hold(WFileSystem::OpenReadableFile(path_.c_str()), true, false);
        } else if (operation == 'W') {
            Hold(WFileSystem::OpenWriteableFile(path_.c_str(), policy_), false, true);
        } else {
            Hold(WFileSystem::OpenUpdateableFile(path_.c_str(), policy_), true, true);
        }
        isNamed_ = true;
        isCommitted_ = false;
        position_ = 0;
        opened_ = named_.value_or("");
        named_ = opened_;
        std::filesystem::remove(secondName_);
        std::filesystem::create_hard_link(narrowPath_, secondName_);
        return true;
    }

    template <class File>
    void Hold(std::unique_ptr<File> file, [[maybe_unused]] bool isReadable, [[maybe_unused]] bool isWriteable) {
        if constexpr (std::is_convertible_v<File*, WFileSystem::ReadableFile*>) {
            readable_ = file.get();
        }
        if constexpr (std::is_convertible_v<File*, WFileSystem::WriteableFile*>) {
            writeable_ = file.get();
        }
        Require((readable_ != nullptr) == isReadable && (writeable_ != nullptr) == isWriteable, "the kind is right");
        file_ = std::move(file);
    }

    void Close() {
        if (file_) {
            bool const isUndone = writeable_ != nullptr && !isCommitted_;
            file_.reset();
            readable_ = nullptr;
            writeable_ = nullptr;
            if (isUndone && policy_ != WFileSystem::KEEP_FILE) {
                opened_.clear();
                named_ = isNamed_ ? opened_ : named_;
            }
            if (isUndone && policy_ == WFileSystem::DELETE_FILE) {
                named_.reset(); // whatever has the name
            }
            CheckFile(secondName_, opened_);
        }
        CheckFile(narrowPath_, named_);
    }

    static void CheckFile(std::string const& path, std::optional<std::string> const& expected) {
        std::ifstream file(path, std::ios::binary);
        Require(file.is_open() == expected.has_value(), expected ? "the file is there" : "the file is gone");
        if (expected) {
            std::string const bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            RequireEqual(bytes, *expected, "the file");
        }
    }

    void CheckObject() {
        if (!file_) {
            return;
        }
        RequireEqual<std::wstring>(file_->GetPath(), path_, "the path");
        if (IsDone([&] { file_->GetSize(); }, L"Failed to get size of")) {
            RequireEqual<long long>(file_->GetSize(), static_cast<long long>(opened_.size()), "the size");
        }
        if (IsDone([&] { file_->GetPosition(); }, L"Failed to get current position of")) {
            RequireEqual<long long>(file_->GetPosition(), static_cast<long long>(position_), "the position");
        }
        Message message;
        Require(
            file_->IsAccessibleViaPath(&message) == (isNamed_ && !isCommitted_),
            "it is accessible while it has the name");
        Require((*message.what() != '\0') == isCommitted_, "a message tells when that can't be found out");
    }

    /// The file's name is taken away, or given to another file; or the object ends.
    bool Replace(char operation, Input& input) {
        if (operation == 'q') {
            Close();
        } else if (operation == 'n') {
            std::filesystem::remove(narrowPath_);
            named_.reset();
            isNamed_ = false;
            if (input.OneOf("yn") == 'y') {
                named_ = input.Bytes(input.Byte() % 8);
                std::ofstream(narrowPath_, std::ios::binary) << *named_;
            }
        } else {
            return false;
        }
        return true;
    }

    bool Read(char operation, Input& input) {
        switch (operation) {
        case 'r': { // bytes
            std::string bytes(input.Byte() % 40, '#');
            auto const read = [&] { readable_->Read(static_cast<void*>(bytes.data()), bytes.size()); };
            if (readable_ != nullptr) {
                RequireBytesRead(read, bytes);
            }
            return true;
        }
        case 'i': { // a number
            std::string bytes(4, '#');
            unsigned int value = 0;
            auto const read = [&] {
                readable_->ReadLittleEndian(value);
                for (unsigned int i = 0; i < bytes.size(); ++i) {
                    bytes[i] = static_cast<char>(value >> (8 * i));
                }
            };
            if (readable_ != nullptr) {
                RequireBytesRead(read, bytes);
            }
            return true;
        }
        case 'x': { // into the buffer
            unsigned long const wanted = input.Byte() % (BUFFER_SIZE + 4);
            unsigned long const most = wanted == 0 || wanted > BUFFER_SIZE ? BUFFER_SIZE : wanted;
            auto const read = [&] { readable_->Read(*buffer_, wanted); };
            if (readable_ != nullptr && IsDone(read, L"Failed to read " + std::to_wstring(most) + L" bytes from")) {
                RequireBuffer(Rest().substr(0, most));
            }
            return true;
        }
        case 'l': { // a line
            auto const read = [&] { readable_->ReadLine(*buffer_); };
            if (readable_ != nullptr &&
                IsDone(read, L"Failed to read " + std::to_wstring(BUFFER_SIZE) + L" bytes from")) {
                std::string const seen = Rest().substr(0, BUFFER_SIZE);
                std::size_t const lineFeed = seen.find('\n');
                RequireBuffer(
                    lineFeed != std::string::npos ? seen.substr(0, lineFeed + 1) : seen.substr(0, seen.find('\0')));
            }
            return true;
        }
        case 'k': // the shared lock
            if (readable_ != nullptr) {
                bool const doNotWait = input.OneOf("yn") == 'y';
                IsDone([&] { Require(readable_->ReadLock(doNotWait), "the lock is granted"); }, L"Failed to lock");
            }
            return true;
        case 'u': // no lock
            if (readable_ != nullptr) {
                readable_->ReadUnlock();
            } else {
                writeable_->WriteUnlock();
            }
            return true;
        default:
            return false;
        }
    }

    /// \param read reads so many bytes, which are wanted, exactly
    template <class Action>
    void RequireBytesRead(Action read, std::string const& bytes) {
        std::string const expected = Rest().substr(0, bytes.size());
        unsigned long const missing = bytes.size() - expected.size();
        if (isCommitted_ && !bytes.empty()) {
            RequireFailure(read, L"Failed to read " + std::to_wstring(bytes.size()) + L" bytes from", EBADF);
        } else if (!isCommitted_ && missing > 0) {
            RequireFailure(read, L"Failed to read " + std::to_wstring(missing) + L" bytes from", 0);
            position_ += expected.size();
        } else {
            read();
            if (!bytes.empty()) {
                RequireEqual(bytes, expected, "what was read");
                position_ += expected.size();
            }
        }
    }

    void RequireBuffer(std::string const& expected) {
        RequireEqual(std::string(buffer_->GetBuffer(), buffer_->GetSize()), expected, "what was read");
        position_ += expected.size();
    }

    bool Write(char operation, Input& input) {
        switch (operation) {
        case 'w': { // bytes
            std::string const bytes = input.Bytes(input.Byte() % 40);
            Written([&] { writeable_->Write(static_cast<void const*>(bytes.data()), bytes.size()); }, bytes);
            return true;
        }
        case 't': { // a text, up to its NUL or a part of it
            std::string const text = input.Line();
            unsigned long const size = text.empty() ? 0 : input.Byte() % (text.size() + 1);
            Written([&] { writeable_->Write(text.c_str(), size); }, size == 0 ? text : text.substr(0, size));
            return true;
        }
        case 'T': { // a number
            std::string bytes = input.Bytes(4);
            bytes.resize(4);
            unsigned int value = 0;
            for (unsigned int i = 0; i < 4; ++i) {
                value += static_cast<unsigned int>(static_cast<unsigned char>(bytes[i])) << (8 * i);
            }
            Written([&] { writeable_->WriteLittleEndian(value); }, bytes);
            return true;
        }
        case 'c': // cut at the position
            if (writeable_ != nullptr &&
                IsDone([&] { writeable_->Truncate(); }, L"Failed to get current position of")) {
                opened_.resize(position_);
                ShowThroughName();
            }
            return true;
        case 'f':
            if (writeable_ != nullptr) {
                IsDone([&] { writeable_->Flush(); }, L"Failed to flush");
            }
            return true;
        case 'K': // the exclusive lock
            if (writeable_ != nullptr) {
                bool const doNotWait = input.OneOf("yn") == 'y';
                IsDone([&] { Require(writeable_->WriteLock(doNotWait), "the lock is granted"); }, L"Failed to lock");
            }
            return true;
        case 'C':
            if (writeable_ != nullptr && IsDone([&] { writeable_->CommitAndClose(); }, L"Failed to close handle of")) {
                isCommitted_ = true;
                CheckFile(secondName_, opened_);
                if (isNamed_) {
                    WFileSystem::OpenReadableFile_InProcessLockNoWait(path_.c_str()); // another object can have it now
                }
            }
            return true;
        default:
            return false;
        }
    }

    template <class Action>
    void Written(Action write, std::string const& bytes) {
        if (writeable_ == nullptr) {
            return;
        }
        if (bytes.empty()) {
            write(); // makes no call, so that it succeeds on a closed file, too
        } else if (IsDone(write, L"Failed to write " + std::to_wstring(bytes.size()) + L" bytes to")) {
            opened_.resize(std::max(opened_.size(), position_ + bytes.size()));
            opened_.replace(position_, bytes.size(), bytes);
            position_ += bytes.size();
            ShowThroughName();
        }
    }

    void ShowThroughName() {
        named_ = isNamed_ ? opened_ : named_;
        CheckFile(secondName_, opened_);
    }

    bool Position(char operation, Input& input) {
        long long const end = static_cast<long long>(opened_.size());
        auto const position = static_cast<long long>(position_);
        long long const offset = operation == 'e' ? 0 : input.Byte() * 7LL;
        switch (operation) {
        case 'p':
            Positioned([&] { return file_->SetPosition(offset); }, offset);
            return true;
        case 'P':
            Positioned([&] { return file_->SetPosition(-1 - offset); }, -1 - offset);
            return true;
        case 'm':
            Positioned([&] { return file_->MovePosition(offset); }, position + offset);
            return true;
        case 'M':
            Positioned([&] { return file_->MovePosition(-offset); }, position - offset);
            return true;
        case 'e':
            Positioned([&] { return file_->SetPositionToEnd(); }, end);
            return true;
        default:
            return false;
        }
    }

    template <class Action>
    void Positioned(Action move, long long expected) {
        if (!isCommitted_ && expected < 0) {
            RequireFailure(move, L"Failed to set current position of", EINVAL);
        } else if (IsDone(
                       [&] { RequireEqual<long long>(move(), expected, "the new position"); },
                       L"Failed to set current position of")) {
            position_ = static_cast<unsigned long>(expected);
        }
    }
};

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t LONGEST_INPUT = 1000;
    static Fuzz::Scratch const scratch;
    static WFileSystem::Initializer const initializer;
    int const free = FirstFreeDescriptor();
    {
        Input input(data, std::min(size, LONGEST_INPUT));
        Session session(scratch / "file");
        while (!input.IsEmpty()) {
            session.Step(input);
        }
    }
    RequireEqual<long long>(FirstFreeDescriptor(), free, "the first free descriptor");
    return 0;
}
