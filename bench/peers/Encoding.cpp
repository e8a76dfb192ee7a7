// CRC by Boost; hex text and fields by Boost and Abseil.
#include "Texts.h"
#include "peers/Peers.h"

#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/MavString.h"

#include <absl/strings/escaping.h>
#include <absl/strings/str_split.h>
#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string.hpp>
#include <boost/crc.hpp>

namespace {

using bench::Size;
using Bytes = std::vector<unsigned char>;

void AddCrc() {
    const char* job = "CRC-16, byte by byte";
    for (const Size size : {Size{"16 B", 16}, Size{"4 KiB", 4096}}) {
        const Bytes data = bench::Noise(static_cast<std::size_t>(size.units));
        unsigned short expected = 0xFFFF;
        for (const unsigned char byte : data) {
            expected = Add_CRC(expected, byte);
        }
        const auto boosted = [data] {
            boost::crc_optimal<16, 0x1021, 0xFFFF, 0, false, false> crc;
            crc.process_bytes(data.data(), data.size());
            return static_cast<unsigned short>(crc.checksum());
        };
        bench::Same(job, "Boost", boosted(), expected);
        bench::Add(job, size, "Boost", [boosted] { bench::Use(boosted()); });
    }
}

void AddHexText() {
    const char* job = "hex text to bytes";
    for (const Size& size : bench::TextSizes(true)) {
        const Bytes data = bench::Noise(static_cast<std::size_t>(size.units) / 2);
        const std::string text = bench::HexOf(data);
        static std::string plain; // keeps its memory from one call to the next
        const auto boosted = [text] {
            plain.clear();
            boost::algorithm::unhex(text, std::back_inserter(plain));
            return plain.data();
        };
        const auto abseil = [text] { return absl::HexStringToBytes(text); };
        const auto same = [&](const char* who, const std::string& result) {
            bench::Same(job, who, Bytes(result.begin(), result.end()), data);
        };
        boosted();
        same("Boost", plain);
        same("absl", abseil());
        bench::Add(job, size, "Boost", [boosted] { bench::Use(boosted()); });
        bench::Add(job, size, "absl", [abseil] { bench::Use(abseil().data()); });
    }
}

void AddSplit() {
    const char* job = "text split into fields";
    for (const Size& size : bench::TextSizes(true)) {
        const std::string text = bench::FieldsText(static_cast<std::size_t>(size.units));
        const auto boosted = [text] {
            std::vector<std::string> list;
            boost::algorithm::split(list, text, [](char c) { return c == ','; });
            return list;
        };
        const auto abseil = [text] { return std::vector<std::string>(absl::StrSplit(text, ',')); };
        strings ours;
        ours.addfrom(text.c_str(), ",", true);
        const std::vector<std::string> expected = ours;
        bench::Same(job, "Boost", boosted(), expected);
        bench::Same(job, "absl", abseil(), expected);
        bench::Add(job, size, "Boost", [boosted] { bench::Use(boosted().data()); });
        bench::Add(job, size, "absl", [abseil] { bench::Use(abseil().data()); });
    }
}

} // namespace

void bench::AddEncodingPeers() {
    AddCrc();
    AddHexText();
    AddSplit();
}
