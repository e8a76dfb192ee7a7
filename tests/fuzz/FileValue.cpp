// A key looked up in a file of any bytes, against a reader that holds the file as a whole.
#include "Fuzz.h"
#include "mavkit/sys/MavFile.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t kPiece = 511;

// The value of the key, or none and not found.
std::string Find(const std::string& file, const std::string& key, bool& found) {
    for (size_t at = 0, end = 0; at < file.size(); at = end) {
        end = std::min({file.find('\n', at), file.size() - 1, at + kPiece - 1}) + 1;
        const std::string piece(file.substr(at, end - at).c_str());
        const std::string line = piece.substr(0, piece.find_first_of("\r\n"));
        const size_t cut = line.find('=');
        found = piece.size() >= 4 && key == (cut == line.npos ? "" : line.substr(0, cut));
        if (found)
            return cut == line.npos ? "" : line.substr(cut + 1);
    }
    return "";
}

} // namespace

void FileValue(fuzz::Input in) {
    static const int fd = memfd_create("fuzz", MFD_CLOEXEC);
    static std::string path = "/proc/self/fd/" + std::to_string(fd);
    std::string key = in.Text(in.Byte());
    // A byte may stand for many: lines longer than a piece come cheap.
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
