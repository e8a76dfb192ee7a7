/// \file
/// A channel over one System V message queue, which the resident processes of the terminal share.
/// Processes that use the same flag reach the same queue: its key is `ftok` of "/root" and the
/// flag. No operation waits: a receive finds a message or reports that there is none, and a send
/// that finds the queue full makes room by dropping older messages.
///
/// A message, as `RecvMsg()` and `SendMsg()` exchange it with the caller:
///
/// | offset         | width          | content                                              |
/// |----------------|----------------|------------------------------------------------------|
/// | 0              | `sizeof(long)` | type, native byte order; a sent one must be above 0  |
/// | `sizeof(long)` | n              | payload                                              |
///
/// A `long` has 4 bytes on the terminal and 8 on a 64-bit host. The length n is not in the buffer
/// but passed beside it; every length below is one of the payload alone. The buffer needs no
/// alignment.
///
/// Every receiving operation takes a selector, as POSIX `msgrcv` does:
///
/// | selector | selects                                                |
/// |----------|--------------------------------------------------------|
/// | 0        | the first message of the queue                         |
/// | t > 0    | the first message of type t                            |
/// | -t < 0   | the first message of the lowest type that is at most t |
///
/// Errors go to the general log. What the channel does, and a `Destroy()` that failed, goes to the
/// trace channel at level Verbose.
#ifndef MAVKIT_IPC_MESSAGE_H
#define MAVKIT_IPC_MESSAGE_H

/// A channel: the queue's id and nothing else. Copies share the queue. The queue outlives every
/// object and every process until `Destroy()` removes it.
class Message {
public:
    /// Calls `InitMsg()` with `flag`.
    explicit Message(int flag);

    /// Creates or joins the queue of `flag` (its low 8 bits count), readable and writable for all
    /// users. When the key cannot be derived or the queue cannot be created, an error goes to the
    /// general log and the object has no queue: every operation below then does nothing, silently,
    /// and returns false. May be called again, for instance after `Destroy()`.
    void InitMsg(int flag);

    /// Takes the selected message out of the queue into the message buffer `ipMsgBuff`, which has
    /// room for `length` payload bytes, and sets `length` to the length of its payload. A message
    /// whose payload is longer than `length` is lost: that is logged, `length` stays, and the
    /// buffer holds the type and the first `length` bytes.
    /// \return true when a message was received; false when none is waiting, when it was too long,
    ///         for a null buffer, and on any other error, which is logged
    bool RecvMsg(void* ipMsgBuff, unsigned int& length, long selector);

    /// As `RecvMsg()`, for the payload alone: `bytes` has room for `length` bytes. With null
    /// `bytes` the message is taken and only its length is reported.
    /// \return as `RecvMsg()`; also false, logged, without memory: then the queue is untouched
    bool RecvData(unsigned char* bytes, unsigned int& length, long selector);

    /// Reports whether a selected message with a payload is waiting; it stays in the queue. An
    /// empty message, which only a foreign program can have sent, is taken out of the queue by this
    /// call.
    /// \return true when one with a payload is waiting; false otherwise and on any error
    bool HasMsg(long selector);

    /// Drops every selected message: 0 all, t those of type t, -t those of types 1 to t. It ends
    /// when none is left, so it goes on for as long as other processes send faster than it drops.
    void ClearMsg(long selector);

    /// Sends the message buffer `msg` with `length` payload bytes. When the kernel refuses it, for
    /// any reason, it drops the queued messages of its type and tries again; then those of all
    /// types up to its own; then all. So a message is tried four times at the most, and only then
    /// is an error logged. A message that is always refused therefore empties the queue: one with a
    /// type of 0 or less, and one whose payload is longer than the kernel allows (`msgmax`, 8192
    /// bytes on most systems).
    /// \return true when it was queued, or when `length` is 0: then nothing is sent; false for a
    ///         null buffer or when the fourth try failed
    bool SendMsg(void* msg, unsigned int length);

    /// Sends the `length` bytes at `bytes` as a message of type `type`, by the rules of
    /// `SendMsg()`.
    /// \return as `SendMsg()`; also false, logged, without memory
    bool SendData(const unsigned char* bytes, unsigned int length, long type);

    /// Removes the queue for every process at once; a failure is a line of the trace channel at
    /// level Verbose. The object keeps the id of the removed queue: its calls fail, and are logged,
    /// until `InitMsg()`.
    void Destroy();

private:
    int queueId_; // -1: no queue
};

#endif
