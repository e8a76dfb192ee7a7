// BCD numbers of any bytes, values and counts, against texts.
#include "Fuzz.h"
#include "mavkit/encoding/BcdNumber.h"

#include <cmath>
#include <cstring>

namespace {

// The atof of uClibc is not exact in its last bits; all others give the nearest double.
#ifdef __UCLIBC__
constexpr double kAtofError = 1e-15;
#else
constexpr double kAtofError = 0;
#endif

// The last digits of a value's text, packed; a minus sign is the nibble D.
fuzz::Bytes Pack(double value, int integers, int decimals) {
    char text[1200];
    value = std::isfinite(value) ? value : 0;
    const char* end = text + std::snprintf(text, sizeof text, "%0510d%.*f", 0, decimals, value);
    fuzz::Bytes bytes;
    for (int k = 0; k < integers + decimals; ++k) {
        end -= end[-1] == '.' ? 2 : 1;
        const int nibble = *end == '-' ? 0xD : *end - '0';
        if (k % 2 == 0)
            bytes.push_back(0);
        bytes.back() = static_cast<unsigned char>(bytes.back() | nibble << k % 2 * 4);
    }
    return bytes;
}

} // namespace

void BcdNumbers(fuzz::Input in) {
    const unsigned char integers = in.Byte(), decimals = in.Byte();
    const unsigned char toIntegers = in.Byte(), toDecimals = in.Byte();
    const int exponent = static_cast<int>(in.Number());
    const fuzz::Bytes raw = in.Take(sizeof(double));
    double value;
    std::memcpy(&value, raw.data(), sizeof value);
    const unsigned int digits = static_cast<unsigned int>(integers) + decimals;
    fuzz::Bytes data = in.Take((digits + 1) / 2);

    // Bytes to a value: the digits before the first nibble that is not a digit, with their point.
    std::string text;
    bool valid = true;
    for (unsigned int k = digits; k-- > 0 && valid;) {
        const int digit = data[k / 2] >> k % 2 * 4 & 0x0F;
        text += k + 1 == decimals ? "." : "";
        text += static_cast<char>('0' + digit);
        valid = digit <= 9;
    }
    const double read = BCDToDouble(data.data(), integers, decimals);
    CHECK(std::fabs(read - std::atof(text.c_str())) <= kAtofError * read);
    CHECK(!valid || std::fabs(basechange(-decimals, digits, data.data()) - read) <= 1e-12 * read);
    CHECK(!valid || digits > 15 || digits % 2 != 0 || Pack(read, integers, decimals) == data);
    CHECK(basechange(exponent, digits, data.data()) >= 0);

    // From layout to layout.
    fuzz::Bytes out((toIntegers + toDecimals + 1U) / 2, 0xEE);
    const fuzz::Bytes untouched = out;
    fuzz::Bytes wanted = out;
    unsigned char i = toIntegers, d = toDecimals;
    const bool refused = std::max({integers, decimals, i, d}) > 16;
    if (!refused)
        DoubleToBCD(read, i, d, wanted.data());
    CHECK(BCDExchange(data.data(), integers, decimals, out.data(), toIntegers, toDecimals) ==
          (refused ? -1 : 0));
    CHECK(out == wanted);

    // A value to bytes: with its sign, and with an even count without it.
    out = untouched;
    i = static_cast<unsigned char>(out.size());
    const bool none = toIntegers == 0;
    CHECK(basechange_reverse(value, toDecimals, toIntegers, i, out.data()) == (none ? -1 : 0));
    CHECK(out == (none ? untouched : Pack(value, toIntegers, toDecimals)));
    i = integers;
    d = decimals;
    out.assign((digits + 1) / 2, 0xEE);
    CHECK(DoubleToBCD(value, i, d, out.data()) == 0);
    const int more = digits % 2 == 0 ? 0 : digits < 16 ? 1 : -1;
    CHECK(i == integers + (more > 0 || integers > 0 ? more : 0));
    CHECK(i + d == integers + decimals + more);
    out.resize((i + d) / 2U);
    CHECK(out == Pack(std::fabs(value) < 0.0001 ? 0 : std::fabs(value), i, d));
}
