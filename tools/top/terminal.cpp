// Signals write into a pipe that is waited for together with the keys: none is lost between two waits.
#include "terminal.h"

#include "core/handle.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace {

// Own screen, no cursor, lines that are cut and not wrapped; and back.
constexpr char TAKE_SCREEN[] = "\033[?1049h\033[?25l\033[?7l";
constexpr char GIVE_SCREEN[] = "\033[?7h\033[?25h\033[?1049l";
constexpr int WATCHED_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP, SIGCONT};

struct {
    bool open = false;
    bool has_keys = false; // standard input is a terminal, too
    bool changed = false;  // its settings are
    termios before{};
    int signal_read = -1;
    int signal_write = -1;
    char bytes[32] = {}; // keys that were read and not looked at
    size_t count = 0;
} screen;

void write_all(const char *text, size_t size) {
    while (size > 0) {
        const ssize_t written = write(STDOUT_FILENO, text, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // the terminal is gone, of which a signal tells
        text += written;
        size -= static_cast<size_t>(written);
    }
}

void signalled(int number) {
    const int saved = errno;
    const auto byte = static_cast<char>(number);
    const ssize_t written = write(screen.signal_write, &byte, 1);
    (void)written; // a full pipe wakes as well
    errno = saved;
}

void watch_signals() {
    int ends[2];
    if (screen.signal_read < 0 && pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        screen.signal_read = ends[0];
        screen.signal_write = ends[1];
    }
    struct sigaction action {};
    action.sa_handler = signalled;
    action.sa_flags = SA_RESTART;
    for (const int number : WATCHED_SIGNALS)
        (void)sigaction(number, &action, nullptr); // cannot fail for these
}

// Keys come one by one and unseen, also those that would be signals: a child that reads a file at that moment is
// spared.
void set_keys() {
    screen.has_keys = tcgetattr(STDIN_FILENO, &screen.before) == 0;
    if (!screen.has_keys)
        return;
    termios raw = screen.before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    raw.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    screen.changed = tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) == 0;
}

top_key key_of_signal(int number) {
    switch (number) {
    case SIGWINCH:
    case SIGCONT:
        return top_key::RESIZED;
    case SIGTSTP:
        return top_key::SUSPEND;
    default:
        return top_key::QUIT;
    }
}

top_key take_key() {
    size_t used = 0;
    const top_key key = top_decode_key(screen.bytes, screen.count, &used);
    memmove(screen.bytes, screen.bytes + used, screen.count - used);
    screen.count -= used;
    return key;
}

void read_keys() {
    const ssize_t got = read(STDIN_FILENO, screen.bytes + screen.count, sizeof screen.bytes - screen.count);
    if (got > 0)
        screen.count += static_cast<size_t>(got);
    else if (got == 0 || errno != EINTR)
        screen.has_keys = false; // nobody presses keys any more
}

struct known_sequence {
    const char *bytes;
    top_key key;
};
constexpr known_sequence SEQUENCES[] = {
    {"\033[A", top_key::UP},         {"\033OA", top_key::UP},    {"\033[B", top_key::DOWN},
    {"\033OB", top_key::DOWN},       {"\033[C", top_key::ENTER}, {"\033OC", top_key::ENTER},
    {"\033[D", top_key::BACK},       {"\033OD", top_key::BACK},  {"\033[5~", top_key::PAGE_UP},
    {"\033[6~", top_key::PAGE_DOWN}, {"\033[H", top_key::HOME},  {"\033[F", top_key::END},
    {"\033[1~", top_key::HOME},      {"\033[4~", top_key::END},
};

top_key key_of_byte(char byte) {
    constexpr struct {
        const char *bytes;
        top_key key;
    } KEYS[] = {
        {"qQ\003\034", top_key::QUIT},
        {"k", top_key::UP},
        {"j", top_key::DOWN},
        {"\r\n", top_key::ENTER},
        {"\033\010\177h", top_key::BACK},
        {" ", top_key::REFRESH},
        {"\032", top_key::SUSPEND},
        {"g", top_key::HOME},
        {"G", top_key::END},
        {"l", top_key::ENTER},
    };
    for (const auto &known : KEYS) {
        if (byte != '\0' && strchr(known.bytes, byte) != nullptr)
            return known.key;
    }
    return top_key::NONE;
}

// The length of a sequence that means nothing here: up to its closing letter.
size_t unknown_length(const char *bytes, size_t size) {
    size_t length = 2;
    while (length < size && (bytes[length] < '@' || bytes[length] > '~'))
        length++;
    return std::min(length + 1, size);
}

} // namespace

top_key top_decode_key(const char *bytes, size_t size, size_t *used) {
    *used = 0;
    if (size == 0)
        return top_key::NONE;
    for (const known_sequence &known : SEQUENCES) {
        const size_t length = strlen(known.bytes);
        if (size >= length && memcmp(bytes, known.bytes, length) == 0) {
            *used = length;
            return known.key;
        }
    }
    const bool sequence = size > 1 && bytes[0] == '\033' && (bytes[1] == '[' || bytes[1] == 'O');
    *used = sequence ? unknown_length(bytes, size) : 1;
    return sequence ? top_key::NONE : key_of_byte(bytes[0]);
}

bool top_terminal_is_able() {
    const char *kind = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && kind[0] != '\0' && strcmp(kind, "dumb") != 0;
}

bool top_terminal_has_colours() {
    const char *refused = getenv("NO_COLOR");
    return refused == nullptr || refused[0] == '\0';
}

void top_terminal_open() {
    if (screen.open)
        return;
    screen.open = true;
    watch_signals();
    set_keys();
    write_all(TAKE_SCREEN, strlen(TAKE_SCREEN));
}

void top_terminal_close() {
    if (!screen.open)
        return;
    screen.open = false;
    write_all(GIVE_SCREEN, strlen(GIVE_SCREEN));
    if (screen.changed)
        (void)tcsetattr(STDIN_FILENO, TCSADRAIN, &screen.before); // the terminal may be gone
    screen.changed = false;
}

void top_terminal_suspend() {
    top_terminal_close();
    (void)signal(SIGTSTP, SIG_DFL);
    (void)raise(SIGTSTP);
    top_terminal_open();
}

top_size top_terminal_size() {
    winsize told{};
    top_size size;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &told) == 0 && told.ws_row > 0 && told.ws_col > 0)
        size = {.rows = told.ws_row, .columns = told.ws_col};
    return size;
}

top_key top_terminal_wait(int milliseconds) {
    if (screen.count > 0)
        return take_key();
    pollfd watched[] = {{screen.signal_read, POLLIN, 0}, {screen.has_keys ? STDIN_FILENO : -1, POLLIN, 0}};
    if (poll(watched, std::size(watched), milliseconds) <= 0)
        return top_key::NONE;
    char number = 0;
    if ((watched[0].revents & POLLIN) != 0 && read(screen.signal_read, &number, 1) == 1)
        return key_of_signal(number);
    if (watched[1].revents != 0)
        read_keys();
    return take_key();
}

void top_terminal_draw(const char *text, size_t size) {
    write_all(text, size);
}
