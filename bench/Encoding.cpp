// The CRC step, hex text, fields, and BCD numbers.
#include "Texts.h"

#include "mavkit/encoding/BcdNumber.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/MavString.h"

#include <cstring>

namespace {

using bench::Size;
using Bytes = std::vector<unsigned char>;

void AddCrc() {
    const char* job = "CRC-16, byte by byte";
    bench::Targets()[job] = "peer 1.0";
    for (const Size size : {Size{"16 B", 16}, Size{"4 KiB", 4096}}) {
        const Bytes data = bench::Noise(static_cast<std::size_t>(size.units));
        static const std::vector<unsigned short> table(crc_tbl, crc_tbl + 256);
        const auto ours = [data] {
            unsigned short crc = 0xFFFF;
            for (const unsigned char byte : data) {
                crc = Add_CRC(crc, byte);
            }
            return crc;
        };
        const auto floor = [data] {
            const unsigned short* const entries = table.data();
            unsigned int crc = 0xFFFF;
            for (const unsigned char byte : data) {
                crc = entries[crc >> 8 ^ byte] ^ (crc << 8 & 0xFFFF);
            }
            return static_cast<unsigned short>(crc);
        };
        bench::Same(job, "floor", floor(), ours());
        bench::Add(job, size, "ours", [ours] { bench::Use(ours()); });
        bench::Add(job, size, "floor", [floor] { bench::Use(floor()); });
    }
}

void AddHexText(bool large) {
    const char* job = "hex text to bytes";
    bench::Targets()[job] = "peer 1.0";
    for (const Size& size : bench::TextSizes(large)) {
        const Bytes data = bench::Noise(static_cast<std::size_t>(size.units) / 2);
        const std::string text = bench::HexOf(data);
        static ByteString bytes; // keeps its memory from one call to the next
        const auto ours = [text] {
            bytes.clear();
            ParseHexStr(text.c_str(), bytes);
            return bytes.data();
        };
        ours();
        bench::Same(job, "ours", Bytes(bytes.begin(), bytes.end()), data);
        bench::Add(job, size, "ours", [ours] { bench::Use(ours()); });
        Bytes copy = data;
        bench::Add(job, size, "floor", [data, copy]() mutable {
            std::memcpy(copy.data(), data.data(), data.size());
            bench::Use(copy.data());
        });
    }
}

void AddSplit(bool large) {
    const char* job = "text split into fields";
    bench::Targets()[job] = "peer 1.0";
    for (const Size& size : bench::TextSizes(large)) {
        const std::string text = bench::FieldsText(static_cast<std::size_t>(size.units));
        bench::Add(job, size, "ours", [text] {
            strings list;
            list.addfrom(text.c_str(), ",", true);
            bench::Use(list.data());
        });
        std::string copy = text;
        bench::Add(job, size, "floor", [text, copy]() mutable {
            std::memcpy(&copy[0], text.data(), text.size());
            bench::Use(copy.data());
        });
    }
}

// The text in the rules of the BCD numbers, with I integer and D decimal digits.
int Print(char (&text)[64], double value, int integer, int decimal) {
    return std::snprintf(text, sizeof text, "%*.*f", integer, decimal, value);
}

void AddBcd() {
    static const double kValues[] = {123.45, 0.07, 98765432.1, 1234567.8901, 42, 99999.995};
    struct Form {
        const char* label;
        unsigned char integer, decimal;
    };
    for (const Form form : {Form{"6 digits", 4, 2}, Form{"12 digits", 8, 4}}) {
        const Size size = {form.label, 0};
        const unsigned char integer = form.integer;
        const unsigned char decimal = form.decimal;
        // One record of six bytes for each value, and its text for the floor.
        static Bytes records[2];
        static std::vector<std::string> texts[2];
        const int at = integer == 8;
        records[at].assign(sizeof kValues / sizeof *kValues * 6, 0);
        for (std::size_t i = 0; i < sizeof kValues / sizeof *kValues; ++i) {
            unsigned char counts[] = {integer, decimal};
            DoubleToBCD(kValues[i], counts[0], counts[1], &records[at][i * 6]);
            char text[64];
            texts[at].push_back(std::string(
                text, static_cast<std::size_t>(Print(text, kValues[i], integer, decimal))));
            // The record is the end of the text, so that ours and the floor do the same.
            std::string digits(integer + decimal, '0');
            for (const char c : texts[at].back()) {
                if (c != '.') {
                    digits += c == ' ' ? '0' : c;
                }
            }
            digits.erase(0, digits.size() - integer - decimal);
            std::string back;
            for (int k = integer + decimal - 1; k >= 0; --k) {
                const unsigned char byte = records[at][i * 6 + static_cast<std::size_t>(k) / 2];
                back += static_cast<char>('0' + (k % 2 == 0 ? byte & 15 : byte >> 4));
            }
            bench::Same("double to BCD", "floor", back, digits);
            char fits[64];
            std::snprintf(fits, sizeof fits, "%.*s.%s", integer, back.c_str(),
                          back.c_str() + integer);
            bench::Same("BCD to double", "floor",
                        BCDToDouble(&records[at][i * 6], integer, decimal), std::atof(fits));
            texts[at].back() = fits;
        }
        static std::size_t next = 0;
        static const auto pick = [] {
            return next = (next + 1) % (sizeof kValues / sizeof *kValues);
        };
        bench::Targets()["double to BCD"] = "floor 1.2";
        bench::Add("double to BCD", size, "ours", [integer, decimal] {
            unsigned char counts[] = {integer, decimal};
            unsigned char out[6];
            DoubleToBCD(kValues[pick()], counts[0], counts[1], out);
            bench::Use(out);
        });
        bench::Add("double to BCD", size, "floor", [integer, decimal] {
            char text[64];
            Print(text, kValues[pick()], integer, decimal);
            bench::Use(text);
        });
        bench::Targets()["BCD to double"] = "floor 1.2";
        bench::Add("BCD to double", size, "ours", [at, integer, decimal] {
            bench::Use(BCDToDouble(&records[at][pick() * 6], integer, decimal));
        });
        bench::Add("BCD to double", size, "floor",
                   [at] { bench::Use(std::atof(texts[at][pick()].c_str())); });
        bench::Targets()["BCD to another layout"] = "floor 1.2";
        bench::Add("BCD to another layout", size, "ours", [at, integer, decimal] {
            unsigned char out[8];
            BCDExchange(&records[at][pick() * 6], integer, decimal, out, 10, 2);
            bench::Use(out);
        });
        bench::Add("BCD to another layout", size, "floor", [at] {
            char text[64];
            Print(text, std::atof(texts[at][pick()].c_str()), 10, 2);
            bench::Use(text);
        });
    }
    // No libc call does this job, so it is compared with the same calculation in 64-bit numbers.
    static char a[] = {0x00, 0x12, 0x34, 0x56, 0x78, 0x10};
    static char b[] = {0x00, 0x02, 0x79, 0x56, 0x79, 0x11};
    const auto binary = [](char* out) {
        long long number[2] = {0, 0};
        for (int i = 0; i < 6; ++i) {
            number[0] = number[0] * 100 + bcdc(a[i]);
            number[1] = number[1] * 100 + bcdc(b[i]);
        }
        long long rest = number[0] - number[1];
        for (int i = 5; i >= 0; --i, rest /= 100) {
            out[i] = static_cast<char>(cbcd(static_cast<char>(rest % 100)));
        }
    };
    char ours[6];
    char theirs[6];
    Sub_84BCD(ours, a, b);
    binary(theirs);
    bench::Same("BCD subtraction", "64-bit numbers", std::memcmp(ours, theirs, 6), 0);
    bench::Targets()["BCD subtraction"] = "peer 1.0";
    bench::Add("BCD subtraction", {"12 digits", 0}, "ours", [] {
        char out[6];
        Sub_84BCD(out, a, b);
        bench::Use(out);
    });
    bench::Add("BCD subtraction", {"12 digits", 0}, "64-bit numbers", [binary] {
        char out[6];
        binary(out);
        bench::Use(out);
    });
}

} // namespace

std::vector<bench::Size> bench::TextSizes(bool large) {
    std::vector<Size> sizes = {{"4 KiB", 4096}, {"64 KiB", 65536}};
    if (large) {
        sizes.erase(sizes.begin());
        sizes.push_back({"1 MiB", 1048576});
    }
    return sizes;
}

std::string bench::HexOf(const std::vector<unsigned char>& data) {
    std::string text;
    for (const unsigned char byte : data) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

std::string bench::FieldsText(std::size_t size) {
    std::string text;
    unsigned int i = 0;
    for (const unsigned char byte : Noise(size)) {
        text += static_cast<char>('a' + byte % 26);
        if (++i % 7 == 0 && byte % 3 != 0) {
            text += ',';
        }
    }
    text.resize(size);
    return text;
}

void bench::AddEncoding(bool large) {
    AddCrc();
    AddHexText(large);
    AddSplit(large);
    AddBcd();
}
