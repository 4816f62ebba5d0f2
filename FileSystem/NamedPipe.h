#ifndef WFILESYSTEM_FILESYSTEM_NAMEDPIPE_H
#define WFILESYSTEM_FILESYSTEM_NAMEDPIPE_H

/// \file
/// \brief A channel between one server and its clients, one at a time, on one machine.
///
/// A channel is named by a base path B and consists of three files. The server makes them and leaves them behind when
/// it ends; each starting server replaces the FIFOs by new ones.
///
/// | File           | What it is                             | The server opens it                        | The client opens it |
/// |----------------|----------------------------------------|--------------------------------------------|---------------------|
/// | B.ServerReader | FIFO, mode 0660, to the server         | for reading, when it is created            | for writing, in NamedPipeClient::Connect |
/// | B.ServerWriter | FIFO, mode 0660, to the client         | for writing, in NamedPipeServer::Listen    | for reading, in NamedPipeClient::Connect |
/// | B.Lock         | ordinary file, kept empty, under an exclusive record lock while a client is connected | for writing, for a moment, when it is created | for writing, in NamedPipeClient::Connect |
///
/// The channel carries bytes and adds nothing to them. Both sides must know how long each message is, by a fixed length
/// or by sending the length first.
///
/// The server never blocks. It tries, asks its callback whether to stop, and sleeps for a number of whole seconds
/// between two tries. The client blocks, without limit, in every operation.
///
/// \code
/// // The server: takes a number from each client, and sends back its double.
/// auto const server = WFileSystem::CreateNamedPipeServer(L"/tmp/doubler", [] { return shallStop.load(); }, 1);
/// int number = 0;
/// server->Listen();
/// while (server->Read(&number, sizeof number) == 0) {
///     number *= 2;
///     server->Write(&number, sizeof number);
/// }
///
/// // A client, in another process.
/// auto const client = WFileSystem::CreateNamedPipeClient(L"/tmp/doubler");
/// if (client->Connect() == 0) {
///     client->Write(&number, sizeof number);
///     client->Read(&number, sizeof number);
/// }
/// client->Disconnect();
/// \endcode

#include <Defines/Export.h>

#include <memory>

namespace WFileSystem {

/// One side of a channel.
///
/// \par Threads
///     Nothing is locked here: one thread at a time uses one object. Of all threads of the process only one may write
///     to named pipes at a time, whatever the objects, because of the disposition of `SIGPIPE`, see Write.
///
/// \warning The descriptors are inherited by the programs that the process runs. A child that keeps one keeps that end
///     of the channel open: when this side has gone, the other side does not fail but waits.
class WFILESYSTEM_EXPORT NamedPipe {
public:
    class NamedPipeError;

    NamedPipe(NamedPipe const&) = delete;
    NamedPipe& operator=(NamedPipe const&) = delete;
    virtual ~NamedPipe() = default;

    /// Reads exactly `n` bytes. A read that a signal interrupts is not repeated but fails.
    ///
    /// The server polls: it asks the callback, reads what there is, and while bytes are missing sleeps for its pause
    /// and begins anew. It asks before the first read and, after each sleep, before the next. The client blocks until
    /// all bytes have come, and makes no call where `n` is 0.
    ///
    /// \param buf memory for `n` bytes
    /// \param n fewer than 2 GiB
    /// \return 0; -1 when the server's callback answered true: what had come by then is in `buf`, and lost to the
    ///     channel
    /// \throws NamedPipeError "Named pipe read error": the system's `read` failed; for the client also when it was
    ///     interrupted
    /// \warning The end of the file is nothing special, so a side that has gone is not noticed. The server goes on
    ///     polling for ever, unless it is cancelled; without sleep where the pause is 0. The client's call never
    ///     returns and never sleeps: it keeps a processor busy.
    /// \warning The bytes are counted in an `int`. A message of 2 GiB or more is taken for whole as soon as the count
    ///     overflows.
    virtual int Read(void* buf, unsigned long n) = 0;

    /// Writes exactly `n` bytes. A write that a signal interrupts is not repeated but fails.
    ///
    /// The server polls: it asks the callback, writes what there is room for, and while bytes are left sleeps for its
    /// pause and begins anew. It asks before each write. The client blocks until all bytes are in the channel, which
    /// does not mean that the server has read them, and makes no call to `write` where `n` is 0.
    ///
    /// \param buf the bytes
    /// \param n fewer than 2 GiB
    /// \return 0; -1 when the server's callback answered true: what was written by then stays in the channel
    /// \throws NamedPipeError
    ///     - "Named pipe write error : …" with the system's description: `write` failed, with `EPIPE` when nobody
    ///       reads;
    ///     - "Failed to do sigaction()": nothing was written
    /// \warning `SIGPIPE` is ignored by the whole process while this runs, and its previous disposition put back at the
    ///     end, whatever the end is. Writers in several threads would put back each other's; a program that another
    ///     thread starts meanwhile inherits the ignoring.
    /// \warning The bytes are counted as in Read.
    virtual int Write(void const* buf, unsigned long n) = 0;

protected:
    NamedPipe() = default;
};

/// How named pipes fail. It is derived from nothing: `catch (WBase::Message const&)` and `catch (std::exception
/// const&)` do not see it.
///
/// \par Threads
///     As for a plain array.
class WFILESYSTEM_EXPORT NamedPipe::NamedPipeError {
public:
    /// \param text copied up to its NUL, 1023 bytes at most; not null
    explicit NamedPipeError(char const* text) noexcept;

    /// The text, in the bytes it was made of. The pointer is valid while the error lives.
    char const* GetMessage() const noexcept { return text_; }

private:
    char text_[1024] = {};
};

/// The side that owns the files of the channel and waits for clients.
///
/// Its destructor closes both descriptors, and leaves the files where they are.
///
/// \warning A server has one connection, its first, for good. It serves later clients on the same FIFOs: such a client
///     reads what the former one left unread, and the server reads the rest of a message that the former one did not
///     finish. Where that may happen, destroy the server after each client and make a new one.
class WFILESYSTEM_EXPORT NamedPipeServer : public NamedPipe {
public:
    /// Waits for the first client: asks the callback, tries to open the FIFO to the client, and while no client is
    /// there sleeps for the pause and begins anew. Returns at once when there has been a client, also when it has gone
    /// since.
    ///
    /// \return 0, when a client came, and also when the callback answered true. After the latter Write fails, unless
    ///     the callback still answers true; to tell the two apart, ask the callback's source.
    /// \throws NamedPipeError "Can't open named pipe for write", for any failure but the absence of a client; an
    ///     interruption too. Before that "open write error", a line feed, a colon and the system's description are
    ///     printed to standard error.
    virtual int Listen() = 0;

    /// Does nothing: the connection stays.
    /// \return 0
    virtual int Disconnect() = 0;
};

/// The side that connects, talks and disconnects.
///
/// \warning The destructor closes nothing: without Disconnect the descriptors and the lock stay until the process ends.
class WFILESYSTEM_EXPORT NamedPipeClient : public NamedPipe {
public:
    /// Connects: opens the lock file, waits for its exclusive record lock and so for the other clients, opens the FIFO
    /// to the server, and then the FIFO to the client, which waits until the server listens.
    ///
    /// The lock is asked for again while a signal interrupts the waiting; the files are opened once each, and an
    /// interrupted opening fails.
    ///
    /// \return 0; -1 when the lock could not be had: then the reason is printed to standard error, as
    ///     FileImpl::WriteLock words it, in the encoding of the C library's locale, cut at 1023 bytes and at the first
    ///     character that the locale does not know
    /// \throws NamedPipeError
    ///     - "Can't open lock for pipe": the lock file is missing, because there never was a server, or may not be
    ///       written;
    ///     - "Can't open pipe for write": the FIFO to the server;
    ///     - "Can't open pipe for read": the FIFO to the client
    /// \throws WBase::StringConversionException the base path can't be converted
    /// \warning Waits for ever where the server does not listen, and also where a server has ended without a successor:
    ///     its files are still there.
    /// \warning A failure closes nothing. What was opened, and the lock, stay until Disconnect, which is due after a
    ///     failure too; until then no other client gets in.
    /// \warning A second call without Disconnect between them connects anew and loses the former descriptors, which
    ///     stay open.
    /// \warning The lock keeps processes apart, not threads: a second client in the same process is let in beside the
    ///     first. A server created in the process of a connected client, on the same base, drops that client's lock.
    virtual int Connect() = 0;

    /// Drops the lock, then closes the lock file, the FIFO read from and the FIFO written to, in this order. What can't
    /// be closed is not reported.
    /// \return 0
    /// \warning Call it once after each Connect. A second call closes the same numbers again, which may belong to other
    ///     files of the process by then.
    virtual int Disconnect() = 0;
};

/// Makes a server: deletes the FIFOs that an earlier server left, makes new ones, sees to it that the lock file exists,
/// and opens the FIFO that the server reads.
///
/// The permission bits of the FIFOs are 0660 whatever the umask. The lock file gets those of any new file (see
/// File::OpenDescriptor); clients need to write it.
///
/// The calls to `stat` and the opening of the lock file are repeated without limit while a signal interrupts them;
/// deleting, making and opening a FIFO are not.
///
/// \param base the base path; a relative one starts at the working directory of the moment, also in Listen
/// \param cancel answers true when the server is to stop waiting; it must not be null, and may be asked as often as
///     there is a try
/// \param pauseSeconds how long the server sleeps between two tries, in whole seconds; 0 does not sleep and keeps a
///     processor busy while waiting; a signal ends a sleep early, so that the callback is asked; not negative
/// \return the server, which the caller owns
/// \throws NamedPipe::NamedPipeError
///     - "Failed to create name pipe", also when something that can't be deleted has the name;
///     - "Can't open pipe for read"
/// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::OpenDescriptor: …" for the lock file, see
///     File::OpenDescriptor
/// \throws WBase::StringConversionException the base path can't be converted
/// \warning What was made before a failure stays.
/// \warning "Failed to create name pipe" leaves the process's file creation mask at 0. Success sets it to 0 for a
///     moment, for all threads: a file that another thread makes meanwhile gets all the bits it asks for.
/// \warning A second server on the same base deletes the FIFOs of the first one, which goes on waiting at files without
///     a name.
/// \warning Whatever has the name of one of the FIFOs is deleted, unless it is a directory or a link that leads
///     nowhere. A lock file that exists is emptied, and a link in its place is followed.
WFILESYSTEM_EXPORT std::unique_ptr<NamedPipeServer>
CreateNamedPipeServer(wchar_t const* base, bool (*cancel)(), int pauseSeconds);

/// Makes a client; nothing is opened yet.
///
/// \param base the base path, which is copied; a relative one starts at the working directory of the moment of Connect
/// \return the client, which the caller owns
WFILESYSTEM_EXPORT std::unique_ptr<NamedPipeClient> CreateNamedPipeClient(wchar_t const* base);

} // namespace WFileSystem

#endif
