// Reads back what the programs of the machine have written.
#ifndef MAVKIT_MACHINE_CONTAINS_H
#define MAVKIT_MACHINE_CONTAINS_H

#include <cstdio>
#include <string>

// Whether the file `path` has `text` in it; false where it cannot be opened.
inline bool Contains(const char* path, const std::string& text) {
    std::string content;
    if (std::FILE* file = std::fopen(path, "r")) {
        for (int c; (c = std::getc(file)) != EOF;)
            content += static_cast<char>(c);
        std::fclose(file);
    }
    return content.find(text) != std::string::npos;
}

#endif
