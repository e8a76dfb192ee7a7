// Which meters were heard from, and which were not.
#include <mavkit/encoding/BitMask.h>

#include <cstdio>

static void Show(const char* what, const BitMask& mask) {
    std::string text;
    mask.ToString(text, 0);
    std::printf("%-9s%s (%u)\n", what, text.c_str(), mask.EnableCount());
}

int main() {
    BitMask wanted;
    wanted.ParseFrom("101-109,120", true, 0);
    BitMask heard;
    for (unsigned int meter : {101U, 102U, 103U, 107U})
        heard.Enable(meter, meter);
    heard.Enable(120, 125);

    std::string text;
    heard.ToString(text, 0);
    BitMask silent = wanted;
    silent.ParseFrom(text.c_str(), false, 0); // take out what was heard

    Show("wanted", wanted);
    Show("heard", heard);
    Show("silent", silent);

    unsigned char buffer[64];
    const unsigned int length = heard.Serialize(buffer, sizeof buffer);
    BitMask copy;
    std::printf("%u bytes, %u taken in\n", length, copy.Deserialize(buffer, length));
}
