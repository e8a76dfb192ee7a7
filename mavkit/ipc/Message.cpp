#include "mavkit/ipc/Message.h"

#include "mavkit/diag/IsTraced.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/diag/TraceText.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

constexpr char kKeyPath[] = "/root";
constexpr std::size_t kTypeSize = sizeof(long);

struct Free {
    void operator()(unsigned char* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<unsigned char, Free>;

// A message buffer for `length` payload bytes and 3 more; null when there is no memory.
Buffer NewBuffer(std::size_t length) {
    constexpr std::size_t kExtra = kTypeSize + 3;
    return Buffer(length > SIZE_MAX - kExtra
                      ? nullptr
                      : static_cast<unsigned char*>(std::malloc(length + kExtra)));
}

// The message is in the queue by now. When there is no memory for the line, only the line is lost.
void TraceSent(int queueId, long type, const unsigned char* payload, unsigned int length) try {
    char head[128];
    const int headLength = std::snprintf(
        head, sizeof head, "Message(queueid=%d,type=%ld) send succeed(%d bytes):", queueId, type,
        static_cast<int>(length));
    std::string line;
    line.reserve(sizeof head + 4 * std::size_t{length}); // enough: it grows only once
    line.append(head, static_cast<std::size_t>(headLength));
    GetPrintString(line, payload, length, true, 0);
    line += '\n';
    MavTrace trace(LEVEL_VERBOSE, 0);
    mavkit::TraceText(trace, line);
} catch (const std::bad_alloc&) {
}

} // namespace

Message::Message(int flag) { InitMsg(flag); }

void Message::InitMsg(int flag) {
    queueId_ = -1;
    const key_t key = ftok(kKeyPath, flag);
    if (key == -1) {
        GENERAL_LOG("Message: Get key from %s ERROR(%s)\n", kKeyPath, std::strerror(errno));
        return;
    }
    queueId_ = msgget(key, IPC_CREAT | 0666);
    if (queueId_ == -1)
        GENERAL_LOG("Message: Create message queue(flag=%c) ERROR(%s)\n", flag,
                    std::strerror(errno));
    else
        MavTrace(LEVEL_VERBOSE, 0)("Message: Message queue(flag=%d) id is %d 0x%x.\n", flag,
                                   queueId_, static_cast<unsigned int>(key));
}

bool Message::RecvMsg(void* ipMsgBuff, unsigned int& length, long selector) {
    if (queueId_ == -1 || ipMsgBuff == nullptr)
        return false;
    const ssize_t received = msgrcv(queueId_, ipMsgBuff, length, selector, IPC_NOWAIT);
    if (received != -1) {
        length = static_cast<unsigned int>(received);
        return true;
    }
    if (errno == E2BIG) {
        GENERAL_LOG("Message: Message(queueid=%d,type=%ld) receive failed because ipMsgBuff is too "
                    "small.\n",
                    queueId_, selector);
        // Takes it out of the queue, cut to the capacity, as it would block every later receive.
        msgrcv(queueId_, ipMsgBuff, length, selector, IPC_NOWAIT | MSG_NOERROR);
    } else if (errno != ENOMSG) {
        GENERAL_LOG("Message: Message(queueid=%d,type=%ld) receive ERROR(%s).\n", queueId_,
                    selector, std::strerror(errno));
    }
    return false;
}

bool Message::RecvData(unsigned char* bytes, unsigned int& length, long selector) {
    if (queueId_ == -1)
        return false;
    const Buffer buffer = NewBuffer(length);
    if (buffer == nullptr) {
        GENERAL_LOG("Message: RecvData of message(queueid=%d,type=%ld) malloc memory failed!\n",
                    queueId_, selector);
        return false;
    }
    if (!RecvMsg(buffer.get(), length, selector))
        return false;
    if (bytes != nullptr)
        std::memcpy(bytes, buffer.get() + kTypeSize, length);
    return true;
}

bool Message::HasMsg(long selector) {
    if (queueId_ == -1)
        return false;
    // With no room for the payload the kernel leaves the message in the queue and reports E2BIG. It
    // gets a real buffer anyway: some kernels and emulators refuse a null one first.
    long probe[2];
    return msgrcv(queueId_, probe, 0, selector, IPC_NOWAIT) == -1 && errno == E2BIG;
}

void Message::ClearMsg(long selector) {
    if (queueId_ == -1)
        return;
    struct {
        long type;
        char payload[4];
    } message;
    while (msgrcv(queueId_, &message, 1, selector, IPC_NOWAIT | MSG_NOERROR) != -1) {
    }
    MavTrace(LEVEL_VERBOSE, 0)("Message: Message(queueid=%d,type=%ld) finished clear.\n", queueId_,
                               selector);
}

bool Message::SendMsg(void* msg, unsigned int length) {
    if (queueId_ == -1 || msg == nullptr)
        return false;
    if (length == 0)
        return true;
    long type;
    std::memcpy(&type, msg, kTypeSize);
    // -type, with no overflow for the lowest type.
    const long upToType = static_cast<long>(0UL - static_cast<unsigned long>(type));
    const long drains[] = {type, upToType, 0};
    const long* drain = drains;
    while (msgsnd(queueId_, msg, length, IPC_NOWAIT) == -1) {
        if (drain == drains + 3) {
            GENERAL_LOG("Message: Message(queueid=%d,type=%ld) send ERROR(%s)!\n", queueId_, type,
                        std::strerror(errno));
            return false;
        }
        ClearMsg(*drain++);
    }
    if (mavkit::IsTraced(LEVEL_VERBOSE, 0))
        TraceSent(queueId_, type, static_cast<const unsigned char*>(msg) + kTypeSize, length);
    return true;
}

bool Message::SendData(const unsigned char* bytes, unsigned int length, long type) {
    if (queueId_ == -1 || bytes == nullptr)
        return false;
    if (length == 0)
        return true;
    const Buffer buffer = NewBuffer(length);
    if (buffer == nullptr) {
        GENERAL_LOG("Message: SendData of message(queueid=%d,type=%ld) malloc memory failed!\n",
                    queueId_, type);
        return false;
    }
    std::memcpy(buffer.get(), &type, kTypeSize);
    std::memcpy(buffer.get() + kTypeSize, bytes, length);
    return SendMsg(buffer.get(), length);
}

void Message::Destroy() {
    if (queueId_ != -1 && msgctl(queueId_, IPC_RMID, nullptr) == -1)
        MavTrace(LEVEL_VERBOSE, 0)("Message: Remove message(queueid=%d) queue ERROR(%s)!\n",
                                   queueId_, std::strerror(errno));
}
