unsigned short Wrapped(unsigned char byte);

int main() { return Wrapped('1') == 0xC782 ? 0 : 1; }
