// A program of somebody else's, in C++11, against an installed mavkit: something of every family, so
// that every object of the library is linked, and a result that tells whether it works.
#include <mavkit/mavkit.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

static int failures = 0;

static void Expect(bool holds, const char* what) {
    if (!holds) {
        std::printf("failed: %s\n", what);
        ++failures;
    }
}

static bool Count(int, bool, const char*, const char*, void* context) {
    ++*static_cast<int*>(context);
    return true;
}

int main() {
    setenv("TZ", "UTC0", 1);

    static TraceSetting setting;
    setting.level = MAKE_TRACE_LEVEL_VAL("Error");
    MavTrace::Setting = &setting;
    MavTrace(LEVEL_VERBOSE, 0)("not to be seen\n");
    std::string text;
    GetPrintString(text, "\x0a\xff", 2, true, 0);
    Expect(text == "0A FF ", "GetPrintString");
    Expect(std::strcmp(MavTrace::Prefix, "kor") == 0, "MavTrace::Prefix");

    IpcInfo info;
    info.type = 1;
    info.bytes1.assign(3, 'x');
    unsigned char flat[64];
    IpcInfo copy;
    Expect(info.Serialize(flat, sizeof flat) == 35 && copy.Deserialize(flat, 35) == 35 &&
               copy.bytes1 == info.bytes1 && copy.IsValid(),
           "IpcInfo");
    Message queue('~');
    unsigned int length = sizeof flat;
    Expect(queue.SendData(flat, 35, 1) && queue.HasMsg(1) && queue.RecvData(flat, length, 1) &&
               length == 35,
           "Message");
    queue.Destroy();
    ShareMem region;
    region.Init("/nowhere/at/all", 1, nullptr, nullptr, nullptr); // which the general log tells
    Expect(region.base == nullptr && region.initialised, "ShareMem");

    char record[7];
    Time_tTimeToBCDTime7(1709618828, record);
    Expect(std::strcmp(bcdtimestr(record), "2024-03-05 06:07:08") == 0, "Time_tTimeToBCDTime7");
    Expect(dateadd(Month, 1, 1709618828) == 1712297228, "dateadd");
    Expect(upboundtime(1709618828, 1709596800, Hour, 2) == 1709625600, "upboundtime");
    unsigned char fields[3];
    Expect(ExchangeBCDTime(0x17, reinterpret_cast<unsigned char*>(record), 0x13, fields) == 0 &&
               std::memcmp(fields, "\x06\x07\x08", 3) == 0,
           "ExchangeBCDTime");

    BitMask mask;
    mask.ParseFrom("1-3,8", true, 0);
    mask.ToString(text, 0);
    Expect(text == "1-3,8" && mask.EnableCount() == 4, "BitMask");
    unsigned short crc = 0xFFFF;
    for (const char* p = "123456789"; *p != '\0'; ++p)
        crc = Add_CRC(crc, static_cast<unsigned char>(*p));
    Expect(crc == 0x29B1, "Add_CRC");
    unsigned char number[] = {0x78, 0x56, 0x34, 0x12};
    Expect(BcdToDec(4, number) == 12345678, "BcdToDec");
    Expect(String_Asc4TouShort("BEEF") == 0xBEEF, "String_Asc4TouShort");
    strings list;
    Expect(list.addfrom("a,b,,c", ",", false) == 3, "strings");

    int entries = 0;
    Expect(DirScan("/proc/self").Scan(Count, &entries, 0) && entries > 0, "DirScan");
    Expect(MavFile::OpenFile("/nowhere/at/all", "r") == nullptr, "MavFile");
    Expect(!IsProcessRunning(0, nullptr), "IsProcessRunning");

    if (failures == 0)
        std::puts("mavkit is at work");
    return failures == 0 ? 0 : 1;
}
