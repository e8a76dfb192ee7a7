// Levelled traces, a dump of many pieces, and the general log.
#include <mavkit/diag/MavDump.h>
#include <mavkit/diag/MavTrace.h>
#include <mavkit/diag/Trace.h>

int main() {
    static TraceSetting setting;  // must outlive every trace call
    setting.prefixOn = 0;         // no tag and time, so that this page can show the output
    setting.level = LEVEL_INFO;   // Verbose stays quiet
    setting.dataWay = WAY_STDOUT; // the data channel is off by default
    MavTrace::Setting = &setting;

    MavTrace(LEVEL_INFO, 0)("meter %d answers\n", 107);
    MavTrace(LEVEL_VERBOSE, 0)("nobody sees this\n");
    MavTrace(LEVEL_VERBOSE, 1)("flag bit 0: on the data channel, whatever the level\n");

    const unsigned char frame[] = {0x68, 0x04, 0x01, 0x16};
    MavDump dump(LEVEL_INFO, 0);
    dump << "frame of " << 4 << " bytes: ";
    dump.DumpAsHex(frame, sizeof frame) << "\n";

    // An error. It comes to standard output where there is no card to log on, as on your machine.
    GENERAL_LOG("example: no answer from meter %d\n", 108);
}
