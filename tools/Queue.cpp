// mavutil queue: the message queues that the resident processes share. What only looks makes the
// kernel's own calls, for a Message creates the queue that it does not find.
#include "mavutil.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <vector>

#ifndef MSG_COPY
#define MSG_COPY 040000 // Linux 3.8 and later, but not every libc
#endif

namespace {

// The id of a flag's queue and what the kernel tells of it; -1: there is none, or none to be read.
int Find(int flag, msqid_ds* state) {
    const key_t key = ftok("/root", flag); // as a Message derives it
    if (key == -1)
        Quit(kFailed, "no keys of queues without /root: %s", std::strerror(errno));
    const int id = msgget(key, 0);
    return id != -1 && msgctl(id, IPC_STAT, state) != -1 ? id : -1;
}

int FlagOf(const char* flag) {
    if (std::strlen(flag) == 1)
        return static_cast<unsigned char>(*flag);
    return static_cast<int>(Number(flag, "a flag is one character or a number;", 0, 255));
}

// The line of a queue; "" when there is none.
std::string LineOf(int flag) {
    msqid_ds s;
    if (Find(flag, &s) == -1)
        return "";
    char line[100];
    std::snprintf(line, sizeof line, "%5d %c %5lu %6lu %6lu %5d %5d", flag,
                  flag > ' ' && flag <= '~' ? flag : '-', s.msg_qnum, s.msg_cbytes, s.msg_qbytes,
                  s.msg_lspid, s.msg_lrpid);
    std::string text = line;
    for (long t : {static_cast<long>(s.msg_stime), static_cast<long>(s.msg_rtime)})
        text.append(" ").append(t != 0 ? timestr(&t) : "- -");
    return text;
}

// All queues, or that of one flag; when watching, again what has changed since the last look.
int Look(char** args, bool watch) {
    const bool all = args[0] == nullptr || std::strcmp(args[0], "all") == 0;
    const int first = all ? 0 : FlagOf(args[0]);
    std::vector<std::string> seen(256);
    std::fputs("#flag c  msgs  bytes  limit  sndr  rcvr last-sent           last-received\n", out);
    do
        for (int flag = first; flag < (all ? 256 : first + 1); ++flag) {
            std::string& line = seen[static_cast<std::size_t>(flag)];
            const std::string was = line;
            line = LineOf(flag);
            if (line.empty() && !was.empty())
                std::fprintf(out, "%.7s removed\n", was.c_str());
            else if (line != was)
                std::fprintf(out, "%s%s%s\n", watch ? bold : "", line.c_str(), watch ? plain : "");
        }
    while (watch && Wait(args[1]));
    return watch || seen != std::vector<std::string>(256) ? kDone : kFailed;
}

int Send(char** args) {
    const int flag = FlagOf(args[0]);
    const long type = Number(args[1], "TYPE", 1, LONG_MAX);
    const ByteString bytes = HexOf(args + 2);
    // A message that can never be queued would empty the queue before the library gave up.
    msginfo limits = {};
    msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits));
    const int most = std::min(limits.msgmax, limits.msgmnb);
    if (bytes.empty() || bytes.size() > static_cast<std::size_t>(most))
        Quit(kBad, "a message has 1 to %d bytes, not %zu", most, bytes.size());
    if (!Message(flag).SendData(bytes.data(), static_cast<unsigned int>(bytes.size()), type))
        Quit(kFailed, "not sent; the general log says why");
    return kDone;
}

int PrintMessage(const std::vector<long>& message, std::size_t length) {
    std::fprintf(out, "%ld %zu %s\n", message[0], length, HexLine(&message[1], length).c_str());
    return kDone;
}

// Whether the kernel knows MSG_COPY. An old one would overlook it, and so take the message: hence a
// queue of our own is asked, with two flags that exclude each other only where both are known.
bool CanPeek() {
    const int own = msgget(IPC_PRIVATE, 0600);
    long message[2];
    const bool can =
        msgrcv(own, message, 0, 0, IPC_NOWAIT | MSG_COPY | MSG_EXCEPT) == -1 && errno == EINVAL;
    return own != -1 && msgctl(own, IPC_RMID, nullptr) == 0 && can;
}

} // namespace

int RunQueue(const std::string& operation, char** args) {
    if (operation == "list" || operation == "watch")
        return Look(args, operation == "watch");
    if (operation == "send")
        return Send(args);
    const int flag = FlagOf(args[0]);
    msqid_ds state;
    const int id = Find(flag, &state);
    if (id == -1)
        Quit(kFailed, "flag %d has no queue", flag);
    // Room for the longest message that waits or may come, its type in front.
    const std::size_t room = std::max(state.msg_qbytes, state.msg_cbytes);
    std::vector<long> buffer(room / sizeof(long) + 2);
    if (operation == "peek") {
        const bool can = CanPeek();
        ssize_t length = 0;
        for (long index = 0; can && length >= 0; ++index) {
            length = msgrcv(id, buffer.data(), room, index, IPC_NOWAIT | MSG_COPY);
            if (length >= 0)
                PrintMessage(buffer, static_cast<std::size_t>(length));
        }
        if (!can || errno == ENOSYS)
            Quit(kFailed, "this kernel shows no message without taking it (it lacks MSG_COPY)");
        return state.msg_qnum > 0 ? kDone : kFailed;
    }
    const long selector = Number(args[1], "SELECTOR", -LONG_MAX, LONG_MAX);
    Message message(flag);
    if (operation == "has")
        return message.HasMsg(selector) ? kDone : kFailed;
    if (operation == "recv") {
        auto length = static_cast<unsigned int>(room);
        const bool got = message.RecvMsg(buffer.data(), length, selector);
        return got ? PrintMessage(buffer, length) : kFailed;
    }
    if (operation == "clear")
        message.ClearMsg(selector);
    if (operation == "remove")
        message.Destroy();
    return operation == "clear" || Find(flag, &state) == -1 ? kDone : kFailed;
}
