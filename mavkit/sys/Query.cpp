#include "mavkit/sys/Query.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

bool IsProcessRunning(int pid, const char* name) {
    char path[sizeof "/proc/-2147483648/status"];
    std::snprintf(path, sizeof path, "/proc/%d/status", pid);
    std::FILE* file = std::fopen(path, "rt");
    if (file == nullptr)
        return false;
    bool running = true;
    char line[128];
    if (name != nullptr && std::fgets(line, sizeof line, file) != nullptr) {
        // The whole line is "Name:\t", the name and a line end. Comparing it piece by piece needs
        // no second buffer, which a long name could overflow.
        const char tag[] = "Name:\t";
        const std::size_t tagLength = sizeof tag - 1;
        const std::size_t length = std::strlen(name);
        running = std::strncmp(line, tag, tagLength) == 0 &&
                  std::strncmp(line + tagLength, name, length) == 0 &&
                  std::strcmp(line + tagLength + length, "\n") == 0;
    }
    std::fclose(file);
    return running;
}

int GetNetIP(const char* ifname, char* out) {
    if (ifname == nullptr)
        return -1;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0)
        return -1;
    ifreq request = {};
    std::strncpy(request.ifr_name, ifname, sizeof request.ifr_name - 1);
    const int result = ioctl(fd, SIOCGIFADDR, &request) == 0 ? 0 : -1;
    if (result == 0 && out != nullptr) {
        sockaddr_in address;
        std::memcpy(&address, &request.ifr_addr, sizeof address);
        inet_ntop(AF_INET, &address.sin_addr, out, INET_ADDRSTRLEN);
    }
    close(fd);
    return result;
}
