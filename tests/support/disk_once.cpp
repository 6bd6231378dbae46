// SPDX-License-Identifier: Apache-2.0
//
// disk_once FOLDER: writes FOLDER/name as careful programs do (a part, fsync, close, rename), and
// says what failed.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

int Failed(const char* call) {
    std::printf("%s: %s\n", call, std::strerror(errno));
    return 1;
}

bool WriteAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count < 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

int main(int, char** arguments) {
    const std::string name = std::string(arguments[1]) + "/name";
    const std::string part = name + ".part";
    const int fd = open(part.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return Failed("open");
    if (!WriteAll(fd, "some text")) return Failed("write");
    if (fsync(fd) != 0) return Failed("fsync");
    if (close(fd) != 0) return Failed("close");
    if (rename(part.c_str(), name.c_str()) != 0) return Failed("rename");
    if (unlink(name.c_str()) != 0) return Failed("unlink");
    std::puts("done");
    return 0;
}
