/// \file
/// A channel over one System V message queue, which the resident processes of the terminal share.
/// Processes that use the same flag reach the same queue: its key is `ftok` of "/root" and the flag.
/// Nothing here ever waits: a receive finds a message or it does not, and a send that finds the queue
/// full makes room by dropping older messages.
///
/// A message, as RecvMsg() and SendMsg() take it from and give it to the caller:
///
/// | offset         | width          | content                                                    |
/// |----------------|----------------|------------------------------------------------------------|
/// | 0              | `sizeof(long)` | type, native byte order; to be sent it must be above 0     |
/// | `sizeof(long)` | n              | payload                                                    |
///
/// A `long` has 4 bytes on the terminal and 8 on a 64-bit host. The length n is not in the buffer but
/// passed beside it; every length below is one of the payload alone. The buffer needs no alignment.
///
/// Every receiving operation takes a selector, as POSIX `msgrcv` does:
///
/// | selector | selects                                              |
/// |----------|------------------------------------------------------|
/// | 0        | the first message of the queue                       |
/// | t > 0    | the first message of type t                          |
/// | -t < 0   | the first message of the lowest type that is at most t |
///
/// Errors go to the general log; what the channel does goes to the trace channel at level Verbose.
#ifndef MAVKIT_IPC_MESSAGE_H
#define MAVKIT_IPC_MESSAGE_H

/// A channel: the queue's id and nothing else. Copies share the queue. The queue outlives every object
/// and every process until Destroy() removes it.
class Message {
public:
    /// Calls InitMsg() with \p flag.
    explicit Message(int flag);

    /// Creates or joins the queue of \p flag (its low 8 bits count), readable and writable for all
    /// users. When the key cannot be derived or the queue not be created, an error goes to the general
    /// log and the object has no queue: everything below then does nothing, silently, and returns
    /// false. May be called again, for instance after Destroy().
    void InitMsg(int flag);

    /// Takes the message that \p selector selects out of the queue into the message buffer
    /// \p ipMsgBuff, which has room for \p length payload bytes; sets \p length to the payload's.
    /// \return true when a message was received. False for a null buffer; when none is waiting; when
    ///         the payload is longer than \p length: that message is logged and lost, its type and
    ///         first bytes stand in the buffer, and \p length stays; and on any other error, logged
    bool RecvMsg(void* ipMsgBuff, unsigned int& length, long selector);

    /// The same for the payload alone: into \p bytes, a buffer of \p length bytes. With null \p bytes
    /// the message is taken and only its length reported.
    /// \return as RecvMsg(); false also, logged, without memory: then the queue is untouched
    bool RecvData(unsigned char* bytes, unsigned int& length, long selector);

    /// Whether a message with a payload waits for \p selector. It stays in the queue.
    /// \return true when it does; false otherwise, and on any error
    bool HasMsg(long selector);

    /// Drops every message that \p selector selects: 0 all, t those of type t, -t those of type 1 to
    /// t. Ends when none is left, so it goes on while others send faster than it drops.
    void ClearMsg(long selector);

    /// Sends the message buffer \p msg with \p length payload bytes. When the queue refuses it, drops
    /// the messages of its type and tries again; then those of all types up to its own; then all. A
    /// message is tried four times at the most, and only then is there an error in the general log.
    /// A type of 0 or less is always refused, so it empties the queue.
    /// \return true when it was queued, or when \p length is 0: nothing is sent then. False for a null
    ///         buffer or when the fourth try failed
    bool SendMsg(void* msg, unsigned int length);

    /// Sends \p length bytes at \p bytes as a message of type \p type, by the rules of SendMsg().
    /// \return as SendMsg(); false also, logged, without memory
    bool SendData(const unsigned char* bytes, unsigned int length, long type);

    /// Removes the queue for every process at once. The object keeps the id that is gone: its calls
    /// fail, and are logged, until InitMsg().
    void Destroy();

private:
    int queueId_; // -1: no queue
};

#endif
