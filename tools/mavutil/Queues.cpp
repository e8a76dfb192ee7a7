// mavutil queue: the message queues between processes.
#include "Verbs.h"

#include "mavkit/ipc/Message.h"
#include "mavkit/time/BcdTime.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace mavutil {
namespace {

constexpr int kCopy = 040000; // MSG_COPY: Linux 3.8 and later, but not every libc
constexpr int kToRead = 0444;
constexpr int kToChange = 0666; // what a `Message` asks for

// The id of a flag's queue, for use with the permissions `rights`; -1 when there is none (ENOENT)
// or they are missing (EACCES).
int Find(int flag, int rights) {
    const key_t key = ftok("/root", flag); // as a `Message` derives it
    if (key == -1)
        Quit(kFailed, "no keys of queues without /root: %s", std::strerror(errno));
    const int id = msgget(key, rights);
    if (id == -1 && errno != ENOENT && errno != EACCES)
        Quit(kFailed, "flag %d: %s", flag, std::strerror(errno));
    return id;
}

// The id of a queue that must exist.
int Need(int flag, int rights) {
    const int id = Find(flag, rights);
    if (id == -1 && errno == ENOENT)
        Quit(kFailed, "flag %d has no queue", flag);
    if (id == -1)
        Quit(kFailed, "flag %d: not permitted, the queue is another user's", flag);
    return id;
}

int FlagOf(const char* flag) {
    if (std::strlen(flag) == 1)
        return static_cast<unsigned char>(*flag);
    return static_cast<int>(Number(flag, "a flag is one character or a number;", 0, 255));
}

bool IsGraphic(int flag) { return flag > ' ' && flag <= '~'; }

enum class Seen { Nothing, Locked, Queue };

Seen StateOf(int flag, msqid_ds* state) {
    const int id = Find(flag, 0);
    if (id != -1 && msgctl(id, IPC_STAT, state) != -1)
        return Seen::Queue;
    return errno == EACCES ? Seen::Locked : Seen::Nothing;
}

// The line of a queue; "" when there is none.
std::string LineOf(int flag) {
    msqid_ds s;
    char line[100];
    const int head =
        std::snprintf(line, sizeof line, "%5d %c ", flag, IsGraphic(flag) ? flag : '-');
    switch (StateOf(flag, &s)) {
    case Seen::Nothing:
        return "";
    case Seen::Locked:
        return std::string(line) + "not permitted";
    default:
        break;
    }
    std::snprintf(line + head, sizeof line - static_cast<std::size_t>(head),
                  "%5lu %6lu %6lu %5d %5d", static_cast<unsigned long>(s.msg_qnum),
                  static_cast<unsigned long>(s.msg_cbytes),
                  static_cast<unsigned long>(s.msg_qbytes), static_cast<int>(s.msg_lspid),
                  static_cast<int>(s.msg_lrpid));
    std::string text = line;
    for (long t : {static_cast<long>(s.msg_stime), static_cast<long>(s.msg_rtime)})
        text.append(" ").append(t != 0 ? timestr(&t) : "- -");
    return text;
}

constexpr char kHeading[] =
    "#flag c  msgs  bytes  limit  sndr  rcvr last-sent           last-received\n";

// Prints the queue of a flag as an object; false when there is none.
bool PrintObject(int flag) {
    msqid_ds s;
    const Seen seen = StateOf(flag, &s);
    if (seen == Seen::Nothing)
        return false;
    JsonLine line;
    line.Add("flag", flag);
    if (IsGraphic(flag))
        line.AddText("char", std::string(1, static_cast<char>(flag)));
    line.AddBool("permitted", seen == Seen::Queue);
    if (seen == Seen::Locked)
        return true;
    line.Add("messages", static_cast<long long>(s.msg_qnum));
    line.Add("bytes", static_cast<long long>(s.msg_cbytes));
    line.Add("limit", static_cast<long long>(s.msg_qbytes));
    line.Add("sender", s.msg_lspid);
    line.Add("receiver", s.msg_lrpid);
    line.Add("lastSent", static_cast<long long>(s.msg_stime));
    line.Add("lastReceived", static_cast<long long>(s.msg_rtime));
    return true;
}

Status List(const Arguments& arguments) {
    bool any = false;
    if (!arguments.json)
        std::fputs(kHeading, out);
    for (int flag = 0; flag < 256; ++flag) {
        if (arguments.json) {
            any = PrintObject(flag) || any;
        } else if (const std::string line = LineOf(flag); !line.empty()) {
            std::fprintf(out, "%s\n", line.c_str());
            any = true;
        }
    }
    return any ? kDone : Complain("no flag has a queue");
}

// The lines of all queues or of one flag's, and again those that have changed since the last look.
Status Watch(const Arguments& arguments) {
    const bool all = arguments[0] == nullptr || std::strcmp(arguments[0], "all") == 0;
    const int first = all ? 0 : FlagOf(arguments[0]);
    const auto pause = static_cast<int>(Number(arguments[1], "MS", 10, 3600000, 500));
    std::string seen[256];
    std::fputs(kHeading, out);
    do
        for (int flag = first; flag < (all ? 256 : first + 1); ++flag) {
            std::string& was = seen[flag];
            std::string line = LineOf(flag);
            if (line == was)
                continue;
            std::fprintf(out, "%s%s%s\n", bold,
                         line.empty() ? (was.substr(0, 7) + " removed").c_str() : line.c_str(),
                         plain);
            was.swap(line);
        }
    while (Wait(pause));
    return kDone;
}

Status Send(const Arguments& arguments) {
    const int flag = FlagOf(arguments[0]);
    const auto type = Number(arguments[1], "TYPE", 1, LONG_MAX);
    const ByteString bytes = BytesOf(arguments.words + 2);
    // For a message that can never be queued the library would empty the queue before it gives up.
    msginfo limits = {};
    if (msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits)) == -1)
        Quit(kBad, "the limits of queues: %s", std::strerror(errno));
    const int most = std::min(limits.msgmax, limits.msgmnb);
    if (bytes.empty() || bytes.size() > static_cast<std::size_t>(most))
        Quit(kBad, "a message has 1 to %d bytes, not %zu", most, bytes.size());
    if (Find(flag, kToChange) == -1 && errno == EACCES)
        Need(flag, kToChange);
    return Message(flag).SendData(bytes.data(), static_cast<unsigned>(bytes.size()), type)
               ? kDone
               : Complain("not sent; the general log says why");
}

// A message as `msgrcv` fills it in: the type and then `length` bytes.
void PrintMessage(const long* message, std::size_t length, bool json) {
    if (!json) {
        std::fprintf(out, "%ld %zu ", message[0], length);
        PrintHex(&message[1], length);
        std::fputc('\n', out);
        return;
    }
    JsonLine line;
    line.Add("type", message[0]);
    line.Add("length", static_cast<long long>(length));
    line.AddBytes("payload", &message[1], length);
}

// Room for the longest message that waits in a queue or may come, with its type in front.
std::unique_ptr<long[]> RoomFor(int id, std::size_t* length) {
    msqid_ds state;
    if (msgctl(id, IPC_STAT, &state) == -1)
        Quit(kFailed, "the queue cannot be read: %s", std::strerror(errno));
    *length = static_cast<std::size_t>(std::max(state.msg_qbytes, state.msg_cbytes));
    return std::make_unique<long[]>(*length / sizeof(long) + 2);
}

// Whether the kernel knows MSG_COPY. An old one would ignore it and remove the message. So this is
// tried on a new queue, with two flags that exclude each other only in a kernel that knows both.
bool CanCopy() {
    const int own = msgget(IPC_PRIVATE, 0600);
    if (own == -1)
        Quit(kFailed, "no queue to try with: %s", std::strerror(errno));
    long message[2];
    msgrcv(own, message, 0, 0, IPC_NOWAIT | kCopy | MSG_EXCEPT);
    const bool known = errno == EINVAL;
    msgrcv(own, message, 0, 0, IPC_NOWAIT | kCopy);
    const bool built = errno == ENOMSG;
    return msgctl(own, IPC_RMID, nullptr) == 0 && known && built;
}

Status Peek(const Arguments& arguments) {
    const int flag = FlagOf(arguments[0]);
    const int id = Need(flag, kToRead);
    if (!CanCopy())
        return Complain("this kernel shows no message without taking it (it lacks MSG_COPY)");
    std::size_t room;
    const std::unique_ptr<long[]> buffer = RoomFor(id, &room);
    for (long index = 0;; ++index) {
        const ssize_t got = msgrcv(id, buffer.get(), room, index, IPC_NOWAIT | kCopy);
        if (got == -1 && errno == ENOMSG)
            return index > 0 ? kDone : Complain("flag %d: no message waits", flag);
        if (got == -1)
            return Complain("flag %d: %s", flag, std::strerror(errno));
        PrintMessage(buffer.get(), static_cast<std::size_t>(got), arguments.json);
    }
}

long SelectorOf(const char* text) { return Number(text, "SELECTOR", -LONG_MAX, LONG_MAX); }

Status Receive(const Arguments& arguments) {
    const int flag = FlagOf(arguments[0]);
    const long selector = SelectorOf(arguments[1]);
    std::size_t room;
    const std::unique_ptr<long[]> buffer = RoomFor(Need(flag, kToChange), &room);
    auto length = static_cast<unsigned>(room);
    if (!Message(flag).RecvMsg(buffer.get(), length, selector))
        return Complain("flag %d: no message waits that %ld selects", flag, selector);
    PrintMessage(buffer.get(), length, false);
    return kDone;
}

Status Clear(const Arguments& arguments) {
    const int flag = FlagOf(arguments[0]);
    const long selector = SelectorOf(arguments[1]);
    Need(flag, kToChange);
    Message(flag).ClearMsg(selector);
    return kDone;
}

Status Remove(const Arguments& arguments) {
    const int flag = FlagOf(arguments[0]);
    const int id = Need(flag, kToChange);
    Message(flag).Destroy();
    return Find(flag, 0) != id
               ? kDone
               : Complain("flag %d: not permitted, the queue is another user's", flag);
}

constexpr Operation kOperations[] = {
    {"list", "j", "", 0, 0, "one line for each flag with a queue", List},
    {"peek", "j", "FLAG", 1, 1, "shows all, takes none: TYPE BYTES HEX", Peek},
    {"recv", "", "FLAG [SELECTOR]", 1, 2, "takes a message, prints it like peek", Receive},
    {"send", "", "FLAG TYPE HEX...", 3, kAnyNumber, "sends one; a full queue drops older ones",
     Send},
    {"clear", "", "FLAG [SELECTOR]", 1, 2, "drops the selected messages", Clear},
    {"remove", "", "FLAG", 1, 1, "removes the queue, for all processes", Remove},
    {"watch", "", "[FLAG|all [MS]]", 0, 2, "lines of list that change, until Ctrl-C", Watch},
};

} // namespace

const Verb kQueue = {
    "queue", "message queues between processes: list, look, send, take", kOperations,
    R"(FLAG is one character (M) or a number (77, 0x4D, 0x07). SELECTOR: 0 selects all
messages, T those of type T, -T those of types 1 to T, the lowest first. sndr,
rcvr: the last sender and receiver. watch looks every MS (500) milliseconds.
  mavutil queue peek M | cut -d' ' -f3- | mavutil record
)"};

} // namespace mavutil
