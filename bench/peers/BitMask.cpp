// The bit mask's jobs done by boost::dynamic_bitset and CRoaring.
#include "Masks.h"
#include "peers/Peers.h"

#include <absl/strings/numbers.h>
#include <absl/strings/str_split.h>
#include <boost/dynamic_bitset.hpp>
#include <fmt/format.h>
#include <roaring/roaring.hh>

namespace {

using bench::MaskRow;
using bench::Size;
using Bitset = boost::dynamic_bitset<unsigned long>;

struct Sets {
    BitMask ours;
    Bitset bitset;
    Roaring roaring;
    std::string text;
};

void AppendRun(std::string& out, std::size_t first, std::size_t last) {
    if (!out.empty()) {
        out += ',';
    }
    fmt::format_int number(first);
    out.append(number.data(), number.size());
    if (last > first) {
        out += '-';
        fmt::format_int end(last);
        out.append(end.data(), end.size());
    }
}

void BitsetText(const Bitset& set, std::string& out) {
    out.clear();
    std::size_t first = set.find_first();
    while (first != Bitset::npos) {
        std::size_t last = first;
        std::size_t next;
        while ((next = set.find_next(last)) == last + 1) {
            last = next;
        }
        AppendRun(out, first, last);
        first = next;
    }
}

void RoaringText(const Roaring& set, std::string& out) {
    out.clear();
    std::size_t first = 0;
    std::size_t last = 0;
    bool any = false;
    for (const std::uint32_t bit : set) {
        if (any && bit != last + 1) {
            AppendRun(out, first, last);
        }
        if (!any || bit != last + 1) {
            first = bit;
        }
        last = bit;
        any = true;
    }
    if (any) {
        AppendRun(out, first, last);
    }
}

template <typename SetRange>
void Parse(const std::string& text, SetRange set) {
    for (const absl::string_view item : absl::StrSplit(text, ',')) {
        const std::pair<absl::string_view, absl::string_view> ends =
            absl::StrSplit(item, absl::MaxSplits('-', 1));
        std::uint32_t from = 0;
        std::uint32_t to = 0;
        if (absl::SimpleAtoi(ends.first, &from)) {
            set(from, absl::SimpleAtoi(ends.second, &to) ? to : from);
        }
    }
}

const Sets* MakeSets(const MaskRow& row) {
    Sets* const sets = new Sets; // for the life of the program
    sets->ours = bench::MakeMask(row);
    sets->bitset.resize(row.bits);
    bench::ForRuns(row.bits, row.dense, [sets](unsigned int from, unsigned int to) {
        sets->bitset.set(from, to - from + 1, true);
        sets->roaring.addRange(from, std::uint64_t{to} + 1);
    });
    sets->roaring.runOptimize();
    sets->ours.ToString(sets->text, 0);
    std::string text;
    BitsetText(sets->bitset, text);
    bench::Same("bits to text", "dynamic_bitset", text, sets->text);
    RoaringText(sets->roaring, text);
    bench::Same("bits to text", "CRoaring", text, sets->text);
    bench::Same("bits counted", "dynamic_bitset", sets->bitset.count(), sets->ours.EnableCount());
    bench::Same("bits counted", "CRoaring", sets->roaring.cardinality(), sets->ours.EnableCount());
    return sets;
}

void AddSet(const MaskRow& row) {
    const Size size = row.size;
    const Sets* const sets = MakeSets(row);
    const Sets* const others = MakeSets({size, row.bits, !row.dense});

    const char* job = "bits counted";
    bench::Add(job, size, "dynamic_bitset", [sets] { bench::Use(sets->bitset.count()); });
    bench::Add(job, size, "CRoaring", [sets] { bench::Use(sets->roaring.cardinality()); });

    job = "union of bits";
    Sets* const sum = new Sets(*sets);
    const auto uniteBitset = [sum, others] {
        sum->bitset |= others->bitset;
        bench::Use(sum);
    };
    const auto uniteRoaring = [sum, others] {
        sum->roaring |= others->roaring;
        bench::Use(sum);
    };
    sum->ours.Enable(others->ours);
    uniteBitset();
    uniteRoaring();
    bench::Same(job, "dynamic_bitset", sum->bitset.count(), sum->ours.EnableCount());
    bench::Same(job, "CRoaring", sum->roaring.cardinality(), sum->ours.EnableCount());
    bench::Add(job, size, "dynamic_bitset", uniteBitset);
    bench::Add(job, size, "CRoaring", uniteRoaring);

    job = "bits to text";
    std::string out = sets->text;
    bench::Add(job, size, "dynamic_bitset", [sets, out]() mutable {
        BitsetText(sets->bitset, out);
        bench::Use(out.data());
    });
    bench::Add(job, size, "CRoaring", [sets, out]() mutable {
        RoaringText(sets->roaring, out);
        bench::Use(out.data());
    });

    job = "text to bits";
    Sets* const read = new Sets;
    read->bitset.resize(row.bits);
    const auto parseBitset = [sets, read] {
        read->bitset.reset();
        Parse(sets->text, [read](unsigned a, unsigned b) { read->bitset.set(a, b - a + 1, true); });
        bench::Use(read);
    };
    const auto parseRoaring = [sets, read] {
        read->roaring = Roaring();
        Parse(sets->text,
              [read](unsigned a, unsigned b) { read->roaring.addRange(a, std::uint64_t{b} + 1); });
        bench::Use(read);
    };
    parseBitset();
    parseRoaring();
    bench::Same(job, "dynamic_bitset", read->bitset == sets->bitset, true);
    bench::Same(job, "CRoaring", read->roaring == sets->roaring, true);
    bench::Add(job, size, "dynamic_bitset", parseBitset);
    bench::Add(job, size, "CRoaring", parseRoaring);
}

void AddFar(const MaskRow& row) {
    const char* job = "one bit found at the end";
    Bitset far(row.bits);
    far.set(row.bits - 1);
    std::string out;
    bench::Add(job, row.size, "dynamic_bitset", [far, out]() mutable {
        BitsetText(far, out);
        bench::Use(out.data());
    });
}

void AddRange(const MaskRow& row) {
    const char* job = "range of bits set";
    Sets* const sets = new Sets;
    sets->bitset.resize(row.bits);
    const unsigned int first = 5;
    const unsigned int last = static_cast<unsigned int>(row.bits - 6);
    const auto bitset = [sets, last] {
        sets->bitset.set(first, last - first + 1, true);
        bench::Use(sets);
    };
    const auto roaring = [sets, last] {
        sets->roaring.addRange(first, std::uint64_t{last} + 1);
        bench::Use(sets);
    };
    sets->ours.Enable(first, last);
    bitset();
    roaring();
    bench::Same(job, "dynamic_bitset", sets->bitset.count(), sets->ours.EnableCount());
    bench::Same(job, "CRoaring", sets->roaring.cardinality(), sets->ours.EnableCount());
    bench::Add(job, row.size, "dynamic_bitset", bitset);
    bench::Add(job, row.size, "CRoaring", roaring);
}

} // namespace

void bench::AddBitMaskPeers() {
    for (const MaskRow& row : RangeRows(true)) {
        AddRange(row);
        AddFar(row);
    }
    for (const MaskRow& row : MaskRows(true)) {
        AddSet(row);
    }
}
