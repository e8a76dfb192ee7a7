#include "mavkit/time/TimeLayout.h"

#include "mavkit/time/LocalTime.h"

#include <algorithm>
#include <cstring>

namespace {

/// Slots of a work record, in the full order of the fields.
enum Slot { kSecond, kMinute, kHour, kWeekday, kDay, kMonth, kYear, kCentury, kSlots };

/// Where the bytes of a `Bcd7Time` stand in a work record.
constexpr int kBcd7Slots[] = {kCentury, kYear, kMonth, kDay, kHour, kMinute, kSecond};

struct Layout {
    int slots[kSlots]; // of its bytes, in order
    int length;        // 0 for an invalid code
    bool hasWeekday;
    bool hasDay;
};

Layout Decode(unsigned char code) {
    Layout layout = {};
    const int start = code & 7;
    const int end = code >> 4 & 7;
    layout.hasWeekday = (code & 0x80) != 0;
    if (start == 0 || end == 0)
        return layout;
    // Fields from the day on stand behind the slot of the weekday.
    int low = std::min(start, end);
    int high = std::max(start, end);
    low -= low < 4 ? 1 : 0;
    high -= high < 4 ? 1 : 0;
    layout.hasDay = low <= kDay && high >= kDay;
    if (layout.hasWeekday) {
        high = high == kHour ? static_cast<int>(kWeekday) : high;
        low = low == kDay ? static_cast<int>(kWeekday) : low;
        if (low > kWeekday || high < kWeekday)
            return layout;
    }
    for (int slot = low; slot <= high; ++slot)
        if (slot != kWeekday || layout.hasWeekday)
            layout.slots[layout.length++] = slot;
    if (end < start)
        std::reverse(layout.slots, layout.slots + layout.length);
    return layout;
}

} // namespace

int ExchangeBCDTime(unsigned char fmtIn, unsigned char* in, unsigned char fmtOut,
                    unsigned char* out) {
    const Layout from = Decode(fmtIn);
    const Layout to = Decode(fmtOut);
    if (from.length == 0 || to.length == 0)
        return -1;
    if (fmtIn == fmtOut) {
        memmove(out, in, static_cast<size_t>(from.length));
        return 0;
    }
    mavkit::LocalTime x;
    char bcd7[7] = {};
    unsigned char work[kSlots] = {};
    if (mavkit::ToFields(time(nullptr), &x.fields))
        mavkit::ToBcd7(x.fields, bcd7);
    for (int i = 0; i < 7; ++i)
        work[kBcd7Slots[i]] = static_cast<unsigned char>(bcd7[i]);
    for (int i = 0; i < from.length; ++i)
        work[from.slots[i]] = in[i];
    if (!from.hasWeekday) {
        if (from.hasDay) {
            for (int i = 0; i < 7; ++i)
                bcd7[i] = static_cast<char>(work[kBcd7Slots[i]]);
            if (mavkit::MakeBcd7(bcd7, &x) == -1)
                mavkit::Break(-1, &x);
        }
        work[kWeekday] = static_cast<unsigned char>(x.fields.tm_wday);
    }
    for (int i = 0; i < to.length; ++i)
        out[i] = work[to.slots[i]];
    return 0;
}
