#include "mavkit/encoding/BcdNumber.h"

#include "mavkit/encoding/BcdByte.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Sign, the digits of the largest double, point, as many decimals as a count can ask for,
// terminator.
constexpr std::size_t kTextSize = 1 + (DBL_MAX_10_EXP + 1) + 1 + 255 + 1;

constexpr unsigned long long kMaxExact = 1ULL << DBL_MANT_DIG;

// The powers of ten that a double represents exactly.
constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr unsigned int kPowerCount = sizeof kPowers / sizeof kPowers[0];

unsigned int DigitAt(const unsigned char* data, unsigned int k) {
    return k % 2 == 0 ? data[k / 2] & 0x0FU : data[k / 2] >> 4U;
}

// Formats a finite value and packs the text from its end, one nibble a character, until all digits
// are written or the text ends. The decimal point is skipped. A locale may have another one, so any
// character that is not a digit, a sign or a blank counts as the point.
void PackText(double value, unsigned int integerDigits, unsigned int decimalDigits,
              unsigned char* out) {
    char text[kTextSize];
    int length = std::snprintf(text, sizeof text, "%*.*f", static_cast<int>(integerDigits),
                               static_cast<int>(decimalDigits), value);
    const unsigned int digits = integerDigits + decimalDigits;
    for (unsigned int k = 0; k < digits && length > 0;) {
        const char c = text[--length];
        if ((c < '0' || c > '9') && c != ' ' && c != '-')
            continue;
        const unsigned int nibble = static_cast<unsigned int>(c - '0') & 0x0F;
        if (k % 2 == 0)
            out[k / 2] = static_cast<unsigned char>(nibble);
        else
            out[k / 2] = static_cast<unsigned char>(out[k / 2] | nibble << 4);
        ++k;
    }
}

// BCDToDouble for numbers that one division of doubles does not give exactly: libc converts the
// text "DIGITSe-DECIMALS", which has no point that a locale could change.
double ReadLongNumber(const unsigned char* data, unsigned int digits, unsigned int decimalDigits) {
    char text[255 + 255 + sizeof "e-255"];
    char* end = text;
    unsigned int k = digits;
    while (k > 0 && DigitAt(data, k - 1) <= 9)
        *end++ = static_cast<char>('0' + DigitAt(data, --k));
    const unsigned int decimals = k < decimalDigits ? decimalDigits - k : 0;
    std::snprintf(end, sizeof "e-255", "e-%u", decimals);
    return std::strtod(text, nullptr);
}

} // namespace

unsigned char cbcd(char value) {
    return mavkit::ToBcdByte(static_cast<unsigned char>(value) % 100U);
}

char bcdc(char bcd) {
    return static_cast<char>(mavkit::FromBcdByte(static_cast<unsigned char>(bcd)));
}

int Comp_BCD(char* a, char* b, unsigned char count) {
    const int order = count == 0 ? 0 : std::memcmp(a, b, count);
    return (order > 0) - (order < 0);
}

int Sub_84BCD(char* out, char* a, char* b) {
    constexpr int kSize = 6;
    int borrow = 0;
    for (int i = kSize - 1; i >= 0; --i) {
        int difference = bcdc(a[i]) - bcdc(b[i]) - borrow;
        borrow = difference < 0 ? 1 : 0;
        if (borrow != 0)
            difference += 100;
        out[i] = static_cast<char>(cbcd(static_cast<char>(difference)));
    }
    if (borrow != 0) {
        std::memset(out, 0, kSize);
        return -2;
    }
    return 0;
}

int DoubleToBCD(double value, unsigned char& integerDigits, unsigned char& decimalDigits,
                unsigned char* out) {
    if ((integerDigits + decimalDigits) % 2 != 0) {
        if (integerDigits + decimalDigits < 16)
            ++integerDigits;
        else if (integerDigits > 0)
            --integerDigits;
        else
            --decimalDigits;
    }
    const unsigned int size = (integerDigits + decimalDigits) / 2U;
    if (size == 0)
        return 0;
    std::memset(out, 0, size);
    const double magnitude = std::fabs(value);
    if (std::isfinite(magnitude) && magnitude >= 0.0001)
        PackText(magnitude, integerDigits, decimalDigits, out);
    return 0;
}

double BCDToDouble(const unsigned char* data, unsigned char integerDigits,
                   unsigned char decimalDigits) {
    const unsigned int digits = static_cast<unsigned int>(integerDigits) + decimalDigits;
    unsigned long long number = 0;
    unsigned int k = digits;
    for (; k > 0 && DigitAt(data, k - 1) <= 9; --k) {
        number = number * 10 + DigitAt(data, k - 1);
        if (number > kMaxExact)
            return ReadLongNumber(data, digits, decimalDigits);
    }
    const unsigned int decimals = k < decimalDigits ? decimalDigits - k : 0;
    // Both doubles are exact, so their quotient is rounded once: it is the nearest double.
    if (decimals < kPowerCount && FLT_EVAL_METHOD == 0)
        return static_cast<double>(number) / kPowers[decimals];
    return ReadLongNumber(data, digits, decimalDigits);
}

int BCDExchange(unsigned char* source, unsigned char sourceInteger, unsigned char sourceDecimal,
                unsigned char* target, unsigned char targetInteger, unsigned char targetDecimal) {
    constexpr unsigned char kMost = 16;
    if (sourceInteger > kMost || sourceDecimal > kMost || targetInteger > kMost ||
        targetDecimal > kMost)
        return -1;
    return DoubleToBCD(BCDToDouble(source, sourceInteger, sourceDecimal), targetInteger,
                       targetDecimal, target);
}

int BcdToDec(int count, unsigned char* data) {
    if (count <= 0)
        return 0;
    if (count > 4 || data == nullptr)
        return -1;
    unsigned int value = 0;
    while (count > 0)
        value = value * 100 + mavkit::FromBcdByte(data[--count]);
    return static_cast<int>(value);
}

double mypow(int exponent) {
    const unsigned int size = exponent < 0 ? 0U - static_cast<unsigned int>(exponent)
                                           : static_cast<unsigned int>(exponent);
    const double power = size < kPowerCount
                             ? kPowers[size]
                             : std::pow(10.0, std::fabs(static_cast<double>(exponent)));
    return exponent < 0 ? 1.0 / power : power;
}

double basechange(int exponent, unsigned int count, const unsigned char* data) {
    double sum = 0.0;
    for (unsigned int k = 0; k < count; ++k) {
        const unsigned int digit = DigitAt(data, k);
        if (digit != 0) {
            int place = 0;
            if (__builtin_add_overflow(exponent, k, &place))
                place = INT_MAX; // its power of ten is infinite as well
            sum += digit * mypow(place);
        }
    }
    return sum;
}

int basechange_reverse(double value, unsigned char decimalDigits, unsigned char integerDigits,
                       unsigned char size, unsigned char* out) {
    if (integerDigits == 0)
        return -1;
    std::memset(out, 0, size);
    if (std::isfinite(value))
        PackText(value, integerDigits, decimalDigits, out);
    else
        std::memset(out, 0, (integerDigits + decimalDigits + 1U) / 2);
    return 0;
}
