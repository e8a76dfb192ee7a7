// formats NAME: prints the worked example of one format, made by the library itself on a stand-in
// terminal whose clock stands at 2024-03-05 06:07:08.
#include "device/Device.h"

#include "mavkit/mavkit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void Bytes(const char* what, const void* bytes, std::size_t length) {
    std::string text;
    GetPrintString(text, bytes, static_cast<unsigned int>(length), true, 0);
    text.erase(text.find_last_not_of(" \n") + 1);
    std::printf("%s%s\n", what, text.c_str());
}

// The content of a file, with tabs, line feeds and zero bytes made visible.
void File(const Device& device, const char* path) {
    const std::string content = device.Read(path);
    std::printf("%s, %zu bytes\n", path, content.size());
    for (std::size_t i = 0; i < content.size();) {
        const std::size_t zeros = content.find_first_not_of('\0', i) - i;
        if (content[i] == '\0') {
            std::printf("<NUL> x %zu\n", std::min(zeros, content.size() - i));
            i += std::min(zeros, content.size() - i);
        } else {
            std::printf(content[i] == '\n'   ? "<LF>\n"
                        : content[i] == '\t' ? "<TAB>"
                                             : "%c",
                        content[i]);
            ++i;
        }
    }
}

void MessageBuffer(Device&) {
    unsigned char payload[] = {0x0A, 0xFF};
    Message queue('F');
    queue.SendData(payload, sizeof payload, 7);
    unsigned char buffer[64];
    unsigned int length = sizeof buffer;
    if (queue.RecvMsg(buffer, length, 0))
        Bytes("", buffer, sizeof(long) + length);
    queue.Destroy();
}

void Record(Device&) {
    IpcInfo info;
    info.first = 107;
    info.second = -1;
    info.type = 7;
    info.createTime = 1709618828;
    info.lifetime = 60;
    info.bytes1.assign({'r', 'e', 'a', 'd'});
    info.bytes3.assign({0x0A, 0xFF});
    unsigned char flat[64];
    const unsigned int length = info.Serialize(flat, sizeof flat);
    for (unsigned int i = 0; i < 32; i += 4)
        Bytes("", flat + i, 4);
    Bytes("", flat + 32, length - 32);
}

void Mask(Device&) {
    BitMask mask;
    mask.ParseFrom("0-2,5,17", true, 0);
    unsigned char bytes[16];
    Bytes("", bytes, mask.Serialize(bytes, sizeof bytes));
}

void GeneralLog(Device& device) {
    GENERAL_LOG("collector: no answer from meter %d\n", 108);
    File(device, GENERAL_LOG_PATH);
}

void TraceFiles(Device& device) {
    TraceSetting setting;
    setting.traceWay = WAY_PUBLIC;
    setting.dataWay = WAY_PRIVATE;
    std::strcpy(setting.name, "uplink");
    setting.maxSize = 60;
    MavTrace::Setting = &setting;
    MavTrace(LEVEL_INFO, 1)("meter %d answers\n", 107);
    MavTrace(LEVEL_INFO, 0)("a dump of %d pieces\n", 3);
    MavTrace(LEVEL_INFO, 0)("the file was longer than 60 bytes\n");
    MavTrace::Setting = nullptr;
    for (const char* name : {"trace.log", "trace.log_bak", "data_uplink.log"})
        File(device, (Device::kTraceDir + std::string(name)).c_str());
}

void KeyValue(Device& device) {
    device.Write("/mnt/sdcard/terminal.conf",
                 "# a comment\r\nqueue=M\r\nname = x=1\nqueue=second\n");
    std::string path = "/mnt/sdcard/terminal.conf";
    for (std::string key : {"queue", "name ", "name"}) {
        char value[511];
        const int result = MavFile::SetFileRead(&path[0], &key[0], value);
        std::printf("\"%s\" is %d \"%s\"\n", key.c_str(), result, value);
    }
}

void HexFile(Device& device) {
    device.Write("/mnt/sdcard/day.hex", "68 12\n07:1\nkWh ABC\n");
    ByteString bytes;
    ParseHexFromFile("/mnt/sdcard/day.hex", bytes);
    Bytes("", bytes.data(), bytes.size());
}

void Times(Device&) {
    char record[7], text[15];
    Get_CurBCDTime7(record);
    Time_tTimeToAscTime14(static_cast<long>(std::time(nullptr)), text);
    Bytes("Bcd7Time   ", record, 7);
    Bytes("Bcd6Time   ", record + 1, 6);
    Bytes("Bcd5Time   ", record + 1, 5);
    Bytes("Asc14Time  ", text, 14);
}

void Layouts(Device&) {
    unsigned char record[7];
    Get_CurBCDTime7(reinterpret_cast<char*>(record));
    const unsigned char codes[] = {0x17, 0x16, 0x26, 0x61, 0x13, 0x97, 0xE1, 0x93, 0xE4};
    for (const unsigned char code : codes) {
        unsigned char out[8];
        ExchangeBCDTime(0x17, record, code, out);
        const int fields = std::abs((code >> 4 & 7) - (code & 7)) + 1 + (code >> 7);
        char what[8];
        std::snprintf(what, sizeof what, "0x%02X  ", code);
        Bytes(what, out, static_cast<std::size_t>(fields));
    }
}

void Numbers(Device&) {
    unsigned char bcd[8], integers = 4, decimals = 2;
    DoubleToBCD(123.45, integers, decimals, bcd);
    Bytes("low-first, 4 and 2 digits, 123.45      ", bcd, 3);
    integers = 5;
    DoubleToBCD(123.45, integers, decimals, bcd);
    std::printf("the same asked for with 5 and 2 digits: %d and %d\n", integers, decimals);
    basechange_reverse(-1.5, 2, 6, 4, bcd);
    Bytes("low-first with a sign, 6 and 2, -1.5   ", bcd, 4);
    char a[] = {0x00, 0x12, 0x34, 0x56, 0x78, char(0x90)}, b[] = {0, 0, 0, 0x56, 0x78, char(0x90)};
    Sub_84BCD(a, a, b);
    Bytes("high-first, 123456.7890 - 56.7890      ", a, 6);
}

const struct {
    const char* name;
    void (*print)(Device& device);
} kFormats[] = {{"message", MessageBuffer}, {"record", Record},    {"mask", Mask},
                {"log", GeneralLog},        {"trace", TraceFiles}, {"keyvalue", KeyValue},
                {"hexfile", HexFile},       {"times", Times},      {"layouts", Layouts},
                {"numbers", Numbers}};

} // namespace

int main(int argc, char** argv) {
    Device device;
    const Zone zone("UTC0");
    Device::HoldClock(1709618828);
    static TraceSetting quiet;
    quiet.level = LEVEL_DISABLED;
    MavTrace::Setting = &quiet;
    for (const auto& format : kFormats)
        if (argc == 2 && std::strcmp(argv[1], format.name) == 0) {
            format.print(device);
            return 0;
        }
    std::fputs("usage: formats NAME\n", stderr);
    return 2;
}
