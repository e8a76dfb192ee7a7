// Texts read and written: hex digits, lists split, the names of levels and ways, keys in files.
#include "Fuzz.h"
#include "mavkit/diag/TraceSetting.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"
#include "mavkit/sys/MavFile.h"

#include <strings.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPiece = 511;

// The value of the key, and whether it was found.
std::string Find(const std::string& file, const std::string& key, bool& found) {
    for (std::size_t at = 0, end = 0; at < file.size(); at = end) {
        end = std::min({file.find('\n', at), file.size() - 1, at + kPiece - 1}) + 1;
        const std::string piece(file.substr(at, end - at).c_str());
        const std::string line = piece.substr(0, piece.find_first_of("\r\n"));
        const std::size_t cut = line.find('=');
        found = piece.size() >= 4 && key == (cut == line.npos ? "" : line.substr(0, cut));
        if (found)
            return cut == line.npos ? "" : line.substr(cut + 1);
    }
    return "";
}

} // namespace

// Hex digits in any text.
void HexText(fuzz::Input in) {
    const std::string text = in.Text(in.left);
    const std::string digits = "0123456789abcdefABCDEF";
    ByteString wanted(1, 'w');
    ByteString bytes = wanted;
    for (std::size_t at = 0; (at = text.find_first_of(digits, at)) != std::string::npos; at += 2) {
        const std::string pair = text.substr(at, 2);
        const std::string byte = pair.substr(0, pair.find_first_not_of(digits));
        wanted += static_cast<unsigned char>(std::stoul(byte, nullptr, 16));
    }
    CHECK(ParseHexStr(text.c_str(), bytes) == 0);
    CHECK(bytes == wanted);
}

// Split at any delimiter: joined again it is the text, and no field has the delimiter in it.
void SplitText(fuzz::Input in) {
    const std::string delimiter = in.Text(in.Byte() % 4);
    const std::string text = in.Text(in.left);
    strings all, filled;
    const int count = all.addfrom(text.c_str(), delimiter.c_str(), true);
    const int more = filled.addfrom(text.c_str(), delimiter.c_str(), false);
    std::string joined;
    strings wanted;
    for (const std::string& field : all) {
        CHECK(delimiter.empty() || field.find(delimiter) == std::string::npos);
        joined += field + delimiter;
        if (!field.empty() || delimiter.empty())
            wanted.push_back(field);
    }
    CHECK(count == static_cast<int>(all.size()));
    CHECK(more == static_cast<int>(filled.size()));
    CHECK(joined == text + delimiter);
    CHECK(filled == wanted);
}

// Any text as the name of a level or way, any code back to its name.
void TraceNames(fuzz::Input in) {
    const std::string text = in.Text(in.left);
    const std::string names[][10] = {{"Disabled", "Error", "Warn", "Info", "Verbose"},
                                     {"None", "Stdout", "Public", "Private", "ttyp0", "ttyp1",
                                      "ttyp2", "ttyp3", "ttyp4", "ttyp5"}};
    for (const bool way : {false, true}) {
        long wanted = std::atol(text.c_str());
        for (long i = 0; i < (way ? 10 : 5); ++i)
            wanted = strcasecmp(text.c_str(), names[way][i].c_str()) == 0 ? i : wanted;
        const int code = (way ? MAKE_TRACE_WAY_VAL : MAKE_TRACE_LEVEL_VAL)(text.c_str());
        CHECK(code == (wanted & 0xFF));
        std::vector<char> name(way ? TRACE_WAY_NAME_SIZE : TRACE_LEVEL_NAME_SIZE);
        const auto toName = way ? MAKE_TRACE_WAY_KEY : MAKE_TRACE_LEVEL_KEY;
        CHECK(toName(static_cast<unsigned char>(code), name.data()) == 0);
        CHECK((code < (way ? 10 : 5) ? names[way][code] : "invalid") == name.data());
    }
}

// A key looked up in a file of any bytes, against a reader that has the whole file in memory.
void FileValue(fuzz::Input in) {
    static const int fd = static_cast<int>(syscall(SYS_memfd_create, "fuzz", 0));
    static std::string path = "/proc/self/fd/" + std::to_string(fd);
    std::string key = in.Text(in.Byte());
    // One byte of the input may become many, so that a short input makes lines longer than a piece.
    std::string file;
    while (in.left > 0) {
        const char c = static_cast<char>(in.Byte());
        file.append(c == '\x7F' ? in.Byte() : 1, c);
    }
    CHECK(ftruncate(fd, 0) == 0);
    CHECK(pwrite(fd, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size()));

    bool found = false;
    const std::string wanted = Find(file, key, found);
    std::vector<char> value(kPiece, '#');
    CHECK(MavFile::SetFileRead(&path[0], &key[0], value.data()) == (found ? 0 : -1));
    CHECK(wanted == value.data());
}
