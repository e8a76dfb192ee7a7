// A record read from any bytes, into a fresh one and into a used one, and written again.
#include "Fuzz.h"
#include "mavkit/ipc/IpcInfo.h"

void IpcInfoBytes(fuzz::Input in) {
    fuzz::Bytes bytes = in.Take(in.left);
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    unsigned int slots[8] = {}, at = 0; // five numbers and three lengths
    for (std::size_t i = 0; size >= 32 && i < 32; ++i)
        slots[i / 4] |= static_cast<unsigned int>(bytes[i]) << i % 4 * 8;
    const unsigned long long total = 32ULL + slots[5] + slots[6] + slots[7];

    const ByteString before(3, 'u');
    IpcInfo used;
    used.bytes2 = before;
    CHECK(used.Deserialize(bytes.data(), size) == (size >= total ? total + 3 : 0));
    for (const int number : {used.first, used.second, used.type, used.createTime})
        CHECK(number == static_cast<int>(slots[at++]));
    CHECK(used.lifetime == slots[4]);
    CHECK(used.bytes2.substr(0, 3) == before);
    if (size < total) {
        CHECK(used.bytes1.empty());
        CHECK(used.bytes2.size() == 3);
        CHECK(used.bytes3.empty());
        return;
    }
    IpcInfo fresh;
    CHECK(fresh.Deserialize(bytes.data(), size) == total);
    CHECK(fresh.bytes1 == ByteString(bytes.data() + 32, slots[5]));
    CHECK(fresh.bytes2 == ByteString(bytes.data() + 32 + slots[5], slots[6]));
    CHECK(fresh.bytes3 == ByteString(bytes.data() + 32 + slots[5] + slots[6], slots[7]));
    CHECK(used.bytes1 == fresh.bytes1);
    CHECK(used.bytes2 == before + fresh.bytes2);
    CHECK(used.bytes3 == fresh.bytes3);

    // Written as text: nothing but zeros from the first zero of a string on.
    const unsigned int room = static_cast<unsigned int>(total);
    const fuzz::Bytes untouched(room, 0xEE);
    fuzz::Bytes written = untouched;
    CHECK(fresh.Serialize(written.data(), room - 1) == 0);
    CHECK(written == untouched);
    CHECK(fresh.Serialize(written.data(), room) == total);
    unsigned char* text = bytes.data() + 32;
    for (int i = 5; i < 8; text += slots[i++])
        std::fill(std::find(text, text + slots[i], 0), text + slots[i], 0);
    CHECK(std::equal(written.begin(), written.end(), bytes.begin()));
}
