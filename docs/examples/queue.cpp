// A request goes from one process to another. Both ends are shown here in one program.
#include <mavkit/diag/MavTrace.h>
#include <mavkit/ipc/IpcInfo.h>
#include <mavkit/ipc/Message.h>

#include <cstdio>
#include <ctime>

static void Ask(int meter) {
    IpcInfo request;
    request.type = 7; // ours to choose, from 1
    request.first = meter;
    request.bytes1.assign({'r', 'e', 'a', 'd'});
    request.createTime = static_cast<int>(std::time(nullptr));
    request.lifetime = 60; // after a minute nobody needs the answer

    unsigned char flat[256];
    const unsigned int length = request.Serialize(flat, sizeof flat);
    if (!Message('G').SendData(flat, length, request.type))
        std::puts("not sent");
}

static void Answer() {
    Message queue('G'); // the same flag: the same queue
    unsigned char flat[256];
    unsigned int length = sizeof flat; // in: the room there is; out: what came
    while (queue.RecvData(flat, length, 7)) {
        IpcInfo request;
        if (request.Deserialize(flat, length) != 0 && request.IsValid())
            std::printf("%u bytes: %.*s meter %d\n", length,
                        static_cast<int>(request.bytes1.size()),
                        reinterpret_cast<const char*>(request.bytes1.data()), request.first);
        length = sizeof flat;
    }
    queue.Destroy(); // else it stays in the kernel, with what is in it
}

int main() {
    static TraceSetting setting;
    setting.level = LEVEL_WARN; // the queue reports every message at level Verbose
    MavTrace::Setting = &setting;
    Ask(107);
    Ask(108);
    Answer();
}
