// A mask read from any bytes: refused whole, or told bit by bit and written back.
#include "Fuzz.h"
#include "mavkit/encoding/BitMask.h"

FUZZ_TARGET(BitMaskBytes) {
    fuzz::Bytes form = in.Take(in.left);
    const unsigned int size = static_cast<unsigned int>(form.size());
    unsigned long long told = 4;
    for (size_t i = 0; i < 4 && size >= 4; ++i)
        told += static_cast<unsigned long long>(form[i]) << 8 * i;

    BitMask mask;
    mask.Enable(3, 3);
    const unsigned int read = mask.Deserialize(form.data(), size);
    CHECK(read == (size >= 4 && told <= size ? told : 0));
    form.resize(read);
    if (read == 0)
        form = {1, 0, 0, 0, 0x10};
    const unsigned int whole = static_cast<unsigned int>(form.size());
    fuzz::Bytes written(whole, 0xEE);
    CHECK(mask.Serialize(written.data(), whole - 1) == 0 && written == fuzz::Bytes(whole, 0xEE));
    CHECK(mask.Serialize(written.data(), whole) == whole && written == form);

    BitMask trimmed;
    trimmed.Enable(mask);
    trimmed.Trim();
    unsigned int count = 0;
    for (unsigned int bit = 0; bit < (whole - 3) * 8; ++bit) {
        const bool set = 4 + bit / 8 < whole && (form[4 + bit / 8] << bit % 8 & 0x80) != 0;
        CHECK(mask.IsEnabled(bit) == set && trimmed.IsEnabled(bit) == set);
        count += set ? 1 : 0;
    }
    CHECK(mask.EnableCount() == count);
}
