// The bit mask. The floor only moves the same number of bytes.
#include "Masks.h"

#include <cstring>

using bench::MaskRow;
using bench::Size;

std::vector<MaskRow> bench::MaskRows(bool large) {
    std::vector<MaskRow> rows = {{{"1 Ki sparse", 1024}, 1024, false},
                                 {{"1 Ki dense", 1024}, 1024, true}};
    if (large) {
        rows.insert(rows.begin() + 1, {{"1 Mi sparse", 1048576}, 1048576, false});
        rows.push_back({{"1 Mi dense", 1048576}, 1048576, true});
    } else {
        rows.push_back({{"32 Ki dense", 32768}, 32768, true});
    }
    return rows;
}

std::vector<MaskRow> bench::RangeRows(bool large) {
    return {{{"1 Ki", 1024}, 1024, false},
            large ? MaskRow{{"1 Mi", 1048576}, 1048576, false}
                  : MaskRow{{"32 Ki", 32768}, 32768, false}};
}

void bench::ForRuns(std::size_t count, bool dense,
                    const std::function<void(unsigned int, unsigned int)>& setRun) {
    const std::vector<unsigned char> noise = Noise(count);
    for (std::size_t at = 3, i = 0; at < count - 40; ++i) {
        const std::size_t length = dense ? 1 + noise[i] % 20 : noise[i] % 4 == 0 ? 3 : 1;
        setRun(static_cast<unsigned int>(at), static_cast<unsigned int>(at + length - 1));
        at += length + 1 + (dense ? noise[i + 1] % 20 : 100 + noise[i + 1]);
    }
    setRun(static_cast<unsigned int>(count - 1), static_cast<unsigned int>(count - 1));
}

BitMask bench::MakeMask(const MaskRow& row) {
    BitMask mask;
    ForRuns(row.bits, row.dense,
            [&mask](unsigned int from, unsigned int to) { mask.Enable(from, to); });
    return mask;
}

namespace {

std::string Text(const BitMask& mask) {
    std::string text;
    mask.ToString(text, 0);
    return text;
}

void AddFloor(const char* job, Size size, const std::string& text) {
    std::string out = text;
    bench::Add(job, size, "floor", [text, out]() mutable {
        std::memcpy(&out[0], text.data(), text.size());
        bench::Use(out.data());
    });
}

void AddSet(const MaskRow& row) {
    const Size size = row.size;
    const BitMask mask = bench::MakeMask(row);
    const BitMask other = bench::MakeMask({size, row.bits, !row.dense});
    const std::string bytes(row.bits / 8, '\0');

    const char* job = "bits counted";
    bench::Targets()[job] = "dynamic_bitset 1.0";
    bench::Add(job, size, "ours", [mask] { bench::Use(mask.EnableCount()); });
    AddFloor(job, size, bytes);

    job = "union of bits";
    bench::Targets()[job] = "dynamic_bitset 1.0";
    BitMask sum = mask;
    bench::Add(job, size, "ours", [sum, other]() mutable {
        sum.Enable(other);
        bench::Use(&sum);
    });
    AddFloor(job, size, bytes);

    job = "bits to text";
    bench::Targets()[job] = "dynamic_bitset 1.0";
    std::string out = Text(mask);
    const std::string text = out;
    bench::Add(job, size, "ours", [mask, out]() mutable {
        mask.ToString(out, 0);
        bench::Use(out.data());
    });
    AddFloor(job, size, text);

    job = "text to bits";
    bench::Targets()[job] = "peer 1.0";
    BitMask read = mask;
    const unsigned int last = static_cast<unsigned int>(row.bits - 1);
    const auto parse = [text, last](BitMask& to) {
        to.Disable(0, last);
        to.ParseFrom(text.c_str(), true, 0);
    };
    parse(read);
    bench::Same(job, "ours", Text(read), text);
    bench::Add(job, size, "ours", [read, parse]() mutable {
        parse(read);
        bench::Use(&read);
    });
    AddFloor(job, size, text);
}

// One bit at the far end of a mask: it is found; it is cleared, and the zeros are cut off.
void AddFar(const MaskRow& row) {
    const unsigned int last = static_cast<unsigned int>(row.bits - 1);
    const std::string bytes(row.bits / 8, '\0');
    BitMask far;
    far.Enable(last, last);
    std::string out;
    bench::Add("one bit found at the end", row.size, "ours", [far, out]() mutable {
        far.ToString(out, 0);
        bench::Use(out.data());
    });
    AddFloor("one bit found at the end", row.size, bytes);
    BitMask cut;
    bench::Add("zeros copied and cut off", row.size, "ours", [far, cut, last]() mutable {
        cut = far;
        cut.Disable(last, last);
        cut.Trim();
        bench::Use(&cut);
    });
    AddFloor("zeros copied and cut off", row.size, bytes);
}

void AddRange(const MaskRow& row) {
    const char* job = "range of bits set";
    bench::Targets()[job] = "dynamic_bitset 1.0";
    BitMask mask;
    mask.Enable(0, static_cast<unsigned int>(row.bits - 1));
    const unsigned int last = static_cast<unsigned int>(row.bits - 6);
    bench::Add(job, row.size, "ours", [mask, last]() mutable {
        mask.Enable(5, last);
        bench::Use(&mask);
    });
    std::vector<unsigned char> bytes(row.bits / 8);
    bench::Add(job, row.size, "floor", [bytes]() mutable {
        std::memset(bytes.data(), 0xFF, bytes.size());
        bench::Use(bytes.data());
    });
}

} // namespace

void bench::AddBitMask(bool large) {
    for (const MaskRow& row : RangeRows(large)) {
        AddRange(row);
        AddFar(row);
    }
    for (const MaskRow& row : MaskRows(large)) {
        AddSet(row);
    }
}
