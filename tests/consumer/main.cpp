// A program of somebody else's, in C++11, against an installed mavkit: something of every family, so
// that none of it fails to link, and a result that tells whether it works.
#include <mavkit/mavkit.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

static int failures = 0;
#define EXPECT(holds) ((holds) ? 0 : (std::printf("failed: %s\n", #holds), ++failures))

static bool Any(int, bool, const char*, const char*, void*) { return true; }

int main() {
    setenv("TZ", "UTC0", 1);
    static TraceSetting setting;
    setting.level = MAKE_TRACE_LEVEL_VAL("Error");
    MavTrace::Setting = &setting;
    MavTrace(LEVEL_VERBOSE, 0)("not to be seen\n");
    std::string text;
    EXPECT((GetPrintString(text, "\x0a\xff", 2, true, 0), text == "0A FF "));

    IpcInfo info, copy;
    info.bytes1.assign(3, 'x');
    unsigned char flat[64];
    unsigned int length = sizeof flat;
    Message queue('~');
    EXPECT(info.Serialize(flat, length) == 35 && queue.SendData(flat, 35, 1));
    EXPECT(queue.RecvData(flat, length, 1) && copy.Deserialize(flat, length) == 35);
    queue.Destroy();
    ShareMem region;
    region.Init("/nowhere/at/all", 1, nullptr, nullptr, nullptr); // which the general log tells
    EXPECT(region.base == nullptr && copy.bytes1 == info.bytes1);

    char record[7];
    unsigned char fields[3], number[] = {0x78, 0x56, 0x34, 0x12};
    Time_tTimeToBCDTime7(1709618828, record);
    EXPECT(std::strcmp(bcdtimestr(record), "2024-03-05 06:07:08") == 0);
    EXPECT(dateadd(Month, 1, 1709618828) == 1712297228);
    EXPECT(upboundtime(1709618828, 1709596800, Hour, 2) == 1709625600);
    EXPECT(ExchangeBCDTime(0x17, reinterpret_cast<unsigned char*>(record), 0x13, fields) == 0);

    BitMask mask;
    mask.ParseFrom("1-3,8", true, 0);
    EXPECT(mask.EnableCount() == 4 && Add_CRC(0xFFFF, '1') == 0xC782 && BcdToDec(1, number) == 78);
    EXPECT(String_Asc4TouShort("BEEF") == 0xBEEF && strings().addfrom("a,,c", ",", false) == 2);
    EXPECT(DirScan("/proc/self").Scan(Any, nullptr, 0));
    EXPECT(MavFile::OpenFile("/nowhere", "r") == nullptr && !IsProcessRunning(0, nullptr));
    return failures == 0 ? (std::puts("mavkit is at work"), 0) : 1;
}
