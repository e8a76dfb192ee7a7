// The bit mask beside boost::dynamic_bitset and CRoaring.
#include "Bench.h"

#include "mavkit/encoding/BitMask.h"

#include <absl/strings/numbers.h>
#include <absl/strings/str_split.h>
#include <boost/dynamic_bitset.hpp>
#include <cstring>
#include <fmt/format.h>
#include <roaring/roaring.hh>

namespace {

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

// Sparse: single bits and short runs, far apart. Dense: runs of about ten bits with gaps as long.
Sets* MakeSets(std::size_t count, bool dense) {
    Sets* const sets = new Sets; // for the life of the program
    sets->bitset.resize(count);
    const std::vector<unsigned char> noise = bench::Noise(count);
    for (std::size_t at = 3, i = 0; at < count - 40; ++i) {
        const std::size_t length = dense ? 1 + noise[i] % 20 : noise[i] % 4 == 0 ? 3 : 1;
        const unsigned int from = static_cast<unsigned int>(at);
        const unsigned int to = static_cast<unsigned int>(at + length - 1);
        sets->ours.Enable(from, to);
        sets->bitset.set(from, length, true);
        sets->roaring.addRange(from, std::uint64_t{to} + 1);
        at += length + 1 + (dense ? noise[i + 1] % 20 : 100 + noise[i + 1]);
    }
    sets->roaring.runOptimize();
    sets->ours.Enable(static_cast<unsigned int>(count - 1), static_cast<unsigned int>(count - 1));
    sets->bitset.set(count - 1);
    sets->roaring.add(static_cast<std::uint32_t>(count - 1));
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

void AddSet(Size size, std::size_t count, bool dense) {
    const Sets* const sets = MakeSets(count, dense);
    const Sets* const others = MakeSets(count, !dense);
    const std::size_t bytes = count / 8;
    static std::vector<unsigned char> from(131072 + 8);
    static std::vector<unsigned char> to(131072 + 8);

    const char* job = "bits counted";
    bench::Target(job, "dynamic_bitset 1.0");
    bench::Add(job, size, "ours", [sets] { bench::Use(sets->ours.EnableCount()); });
    const auto copy = [bytes] {
        std::memcpy(to.data(), from.data(), bytes);
        bench::Use(to.data());
    };
    bench::Add(job, size, "floor", copy);
    bench::Add(job, size, "dynamic_bitset", [sets] { bench::Use(sets->bitset.count()); });
    bench::Add(job, size, "CRoaring", [sets] { bench::Use(sets->roaring.cardinality()); });

    job = "union of bits";
    bench::Target(job, "dynamic_bitset 1.0");
    Sets* const sum = new Sets(*sets);
    const auto unite = [sum, others] {
        sum->ours.Enable(others->ours);
        bench::Use(sum);
    };
    const auto uniteBitset = [sum, others] {
        sum->bitset |= others->bitset;
        bench::Use(sum);
    };
    const auto uniteRoaring = [sum, others] {
        sum->roaring |= others->roaring;
        bench::Use(sum);
    };
    unite();
    uniteBitset();
    uniteRoaring();
    bench::Same(job, "dynamic_bitset", sum->bitset.count(), sum->ours.EnableCount());
    bench::Same(job, "CRoaring", sum->roaring.cardinality(), sum->ours.EnableCount());
    bench::Add(job, size, "ours", unite);
    bench::Add(job, size, "floor", copy);
    bench::Add(job, size, "dynamic_bitset", uniteBitset);
    bench::Add(job, size, "CRoaring", uniteRoaring);

    job = "bits to text";
    bench::Target(job, "dynamic_bitset 1.0");
    std::string out = sets->text;
    bench::Add(job, size, "ours", [sets, out]() mutable {
        sets->ours.ToString(out, 0);
        bench::Use(out.data());
    });
    bench::Add(job, size, "floor", [sets, out]() mutable {
        std::memcpy(&out[0], sets->text.data(), sets->text.size());
        bench::Use(out.data());
    });
    bench::Add(job, size, "dynamic_bitset", [sets, out]() mutable {
        BitsetText(sets->bitset, out);
        bench::Use(out.data());
    });
    bench::Add(job, size, "CRoaring", [sets, out]() mutable {
        RoaringText(sets->roaring, out);
        bench::Use(out.data());
    });

    job = "text to bits";
    bench::Target(job, "peer 1.0");
    Sets* const read = new Sets;
    read->bitset.resize(count);
    const auto parse = [sets, read, count] {
        read->ours.Disable(0, static_cast<unsigned int>(count - 1));
        read->ours.ParseFrom(sets->text.c_str(), true, 0);
        bench::Use(read);
    };
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
    parse();
    parseBitset();
    parseRoaring();
    bench::Same(job, "dynamic_bitset", read->bitset, sets->bitset);
    bench::Same(job, "CRoaring", read->roaring, sets->roaring);
    read->ours.ToString(out, 0);
    bench::Same(job, "ours", out, sets->text);
    bench::Add(job, size, "ours", parse);
    bench::Add(job, size, "floor", [sets, out]() mutable {
        std::memcpy(&out[0], sets->text.data(), sets->text.size());
        bench::Use(out.data());
    });
    bench::Add(job, size, "dynamic_bitset", parseBitset);
    bench::Add(job, size, "CRoaring", parseRoaring);
}

void AddRange(Size size, unsigned int count) {
    const char* job = "range of bits set";
    bench::Target(job, "dynamic_bitset 1.0");
    Sets* const sets = new Sets;
    sets->ours.Enable(0, count - 1);
    sets->ours.Disable(0, count - 1);
    sets->bitset.resize(count);
    const unsigned int first = 5;
    const unsigned int last = count - 6;
    const auto ours = [sets, first, last] {
        sets->ours.Enable(first, last);
        bench::Use(sets);
    };
    const auto bitset = [sets, first, last] {
        sets->bitset.set(first, last - first + 1, true);
        bench::Use(sets);
    };
    const auto roaring = [sets, first, last] {
        sets->roaring.addRange(first, std::uint64_t{last} + 1);
        bench::Use(sets);
    };
    ours();
    bitset();
    roaring();
    bench::Same(job, "dynamic_bitset", sets->bitset.count(), sets->ours.EnableCount());
    bench::Same(job, "CRoaring", sets->roaring.cardinality(), sets->ours.EnableCount());
    bench::Add(job, size, "ours", ours);
    bench::Add(job, size, "floor", [count] {
        static std::vector<unsigned char> bytes(131072);
        std::memset(bytes.data(), 0xFF, count / 8);
        bench::Use(bytes.data());
    });
    bench::Add(job, size, "dynamic_bitset", bitset);
    bench::Add(job, size, "CRoaring", roaring);
}

} // namespace

void bench::AddBitMask() {
    AddRange({"1 Ki", 1024}, 1024);
    AddRange({"1 Mi", 1048576}, 1048576);
    AddSet({"1 Ki sparse", 1024}, 1024, false);
    AddSet({"1 Mi sparse", 1048576}, 1048576, false);
    AddSet({"1 Ki dense", 1024}, 1024, true);
    AddSet({"1 Mi dense", 1048576}, 1048576, true);
}
