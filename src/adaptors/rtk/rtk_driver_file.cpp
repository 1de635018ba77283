// Opening the driver's files through a shell, and what a name must look like to get there.
#include "adaptors/rtk/rtk_driver_file.h"

#include "core/names.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// The characters that mean nothing to a shell in the middle of a word.
constexpr char PLAIN_CHARACTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-:@+=%,/";

bool is_plain(const char *name) {
    return name[strspn(name, PLAIN_CHARACTERS)] == '\0';
}

} // namespace

rtk_driver_file rtk_open_driver_file(const char *ifname, kolt_link_type type, const char *file) {
    const kolt_name_text name(ifname);
    // The Wi-Fi 6 radios have a driver, and so a directory, of their own.
    const char *directory = type == KOLT_LINK_2G ? "/proc" : "/proc/net/rtk_wifi6";
    rtk_driver_file opened;
    (void)snprintf(opened.command, sizeof opened.command, "cat %s/%s/%s", directory, name.text, file);
    if (is_plain(name.text))
        opened.lines = kolt_open_pipe(opened.command);
    return opened;
}

const char *rtk_next_line(rtk_driver_file *file, char (&line)[RTK_LINE_SIZE]) {
    const size_t room = std::min(sizeof line, file->unread + 1);
    const size_t length = kolt_read_line(file->lines.get(), line, room);
    file->unread -= length;
    return length > 0 ? line + strspn(line, " \t") : nullptr;
}
