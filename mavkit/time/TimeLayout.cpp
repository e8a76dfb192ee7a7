#include "mavkit/time/TimeLayout.h"

#include "mavkit/time/LocalTime.h"

#include <cstring>

namespace {

// The slots of a work record. From kDay on they have the numbers of the fields in a layout code;
// below, their numbers less one.
enum Slot { kSecond, kMinute, kHour, kWeekday, kDay, kMonth, kYear, kCentury, kSlots };

// Where the bytes of a `Bcd7Time` are in a work record.
constexpr unsigned char kBcd7Slots[] = {kCentury, kYear, kMonth, kDay, kHour, kMinute, kSecond};

struct Layout {
    unsigned char slots[kSlots] = {}; // of its bytes, in order
    int length = 0;
    bool hasWeekday = false;
    bool hasDay = false;

    void Add(int slot) {
        slots[length++] = static_cast<unsigned char>(slot);
        hasWeekday = hasWeekday || slot == kWeekday;
        hasDay = hasDay || slot == kDay;
    }
};

// Walks the fields of a layout by their numbers, from start to end. The weekday comes between the
// hour and the day: after the one that the walk reaches first, or before the other one when the
// walk starts there. Returns false for an invalid code.
bool Decode(unsigned char code, Layout* layout) {
    const int start = code & 7;
    const int end = code >> 4 & 7;
    const bool wantsWeekday = (code & 0x80) != 0;
    if (start == 0 || end == 0)
        return false;
    const int step = start <= end ? 1 : -1;
    const int beforeWeekday = step > 0 ? kHour : kDay;
    const int behindWeekday = step > 0 ? kDay : kHour;
    for (int field = start; field != end + step; field += step) {
        const int slot = field < kDay ? field - 1 : field;
        if (wantsWeekday && slot == behindWeekday && field == start)
            layout->Add(kWeekday);
        layout->Add(slot);
        if (wantsWeekday && slot == beforeWeekday)
            layout->Add(kWeekday);
    }
    return layout->hasWeekday == wantsWeekday;
}

} // namespace

int ExchangeBCDTime(unsigned char fmtIn, unsigned char* in, unsigned char fmtOut,
                    unsigned char* out) {
    Layout from;
    Layout to;
    if (!Decode(fmtIn, &from) || !Decode(fmtOut, &to))
        return -1;
    if (fmtIn == fmtOut) {
        std::memmove(out, in, static_cast<std::size_t>(from.length));
        return 0;
    }
    mavkit::LocalTime x;
    char bcd7[7] = {};
    unsigned char work[kSlots] = {};
    if (mavkit::ToFields(std::time(nullptr), &x.fields))
        mavkit::ToBcd7(x.fields, bcd7);
    for (int i = 0; i < 7; ++i)
        work[kBcd7Slots[i]] = static_cast<unsigned char>(bcd7[i]);
    for (int i = 0; i < from.length; ++i)
        work[from.slots[i]] = in[i];
    if (!from.hasWeekday) {
        if (from.hasDay) {
            for (int i = 0; i < 7; ++i)
                bcd7[i] = static_cast<char>(work[kBcd7Slots[i]]);
            if (mavkit::SetFromBcd7(bcd7, &x) == -1)
                mavkit::SetTime(-1, &x);
        }
        work[kWeekday] = static_cast<unsigned char>(x.fields.tm_wday);
    }
    for (int i = 0; i < to.length; ++i)
        out[i] = work[to.slots[i]];
    return 0;
}
