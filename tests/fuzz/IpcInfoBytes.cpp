// A record read from any bytes: into a fresh one and onto a used one, and written again.
#include "Fuzz.h"
#include "mavkit/ipc/IpcInfo.h"

void IpcInfoBytes(fuzz::Input in) {
    fuzz::Bytes bytes = in.Take(in.left);
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    unsigned int slots[8] = {}, at = 0;
    for (size_t i = 0; size >= 32 && i < 32; ++i)
        slots[i / 4] |= static_cast<unsigned int>(bytes[i]) << i % 4 * 8;
    const unsigned long long total = 32ULL + slots[5] + slots[6] + slots[7];

    IpcInfo used;
    used.bytes2 = ByteString(3, 'u');
    CHECK(used.Deserialize(bytes.data(), size) == (size >= total ? total + 3 : 0));
    for (const int number : {used.first, used.second, used.type, used.createTime})
        CHECK(number == static_cast<int>(slots[at++]));
    CHECK(used.lifetime == slots[4] && used.bytes2.compare(0, 3, ByteString(3, 'u')) == 0);
    CHECK(size >= total || used.bytes1.size() + used.bytes2.size() + used.bytes3.size() == 3);
    if (size < total)
        return;
    IpcInfo fresh;
    CHECK(fresh.Deserialize(bytes.data(), size) == total);
    const ByteString content = fresh.bytes1 + fresh.bytes2 + fresh.bytes3;
    CHECK(fresh.bytes1.size() == slots[5] && fresh.bytes2.size() == slots[6]);
    CHECK(std::equal(content.begin(), content.end(), bytes.begin() + 32));
    CHECK(used.bytes1 + used.bytes2.substr(3) + used.bytes3 == content);

    // Written as text: nothing but zeros from the first zero of a string on.
    const unsigned int room = static_cast<unsigned int>(total);
    fuzz::Bytes written(room, 0xEE);
    CHECK(fresh.Serialize(written.data(), room - 1) == 0 && written == fuzz::Bytes(room, 0xEE));
    CHECK(fresh.Serialize(written.data(), room) == total);
    auto text = bytes.begin() + 32;
    for (int i = 5; i < 8; text += slots[i++])
        std::fill(std::find(text, text + slots[i], 0), text + slots[i], 0);
    CHECK(std::equal(written.begin(), written.end(), bytes.begin()));
}
