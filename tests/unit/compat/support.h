// What the tests of the library subsets share: temporary directories, peers on a socket, the recorded session.
#pragma once

#include "c_headers.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

// Longest time that any of the waits below lasts.
constexpr int PATIENCE_MS = 20000;

// A directory that is removed with all that is in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    std::string path(const std::string &name) const;
    void write(const std::string &name, const std::string &content) const;

private:
    std::string root;
};

// A descriptor that is closed with its owner.
class Fd {
public:
    explicit Fd(int number = -1) : fd(number) {}
    ~Fd();
    Fd(Fd &&other) noexcept : fd(other.release()) {}
    Fd &operator=(Fd &&other) noexcept;
    int get() const {
        return fd;
    }
    int release();

private:
    int fd;
};

using Bytes = std::string;

Bytes from_hex(const std::string &hex);
std::string to_hex(const Bytes &bytes);

// A whole message, header included.
Bytes wire_message(unsigned type, uint16_t seq, uint32_t peer, const Bytes &attributes = {});
Bytes number_attr(int id, uint32_t value);
Bytes text_attr(int id, const std::string &text);
Bytes raw_attr(int id, const Bytes &payload);
// Named attributes, for the payload of DATA.
Bytes member(int type, const std::string &name, const Bytes &value);
Bytes number_member(const std::string &name, uint32_t value);
Bytes text_member(const std::string &name, const std::string &value);

// Whether the descriptor gets ready for reading, or ends, before patience does.
bool readable(int fd);
bool send_bytes(int fd, const Bytes &bytes);
// Exactly `len` bytes; fewer when the peer ends or stays silent.
Bytes receive_bytes(int fd, size_t len);
// One message, header included; what there is when the peer ends or stays silent.
Bytes receive_message(int fd);
// Whether the peer closes the connection, whatever it sends before.
bool closes(int fd);

Fd listen_at(const std::string &path);
Fd connect_to(const std::string &path);

// A broker whose part is played by a function, on a thread of its own. It serves one connection.
class ScriptedBroker {
public:
    using Script = std::function<void(int fd)>;
    ScriptedBroker(const std::string &path, Script script);
    ~ScriptedBroker();
    ScriptedBroker(const ScriptedBroker &) = delete;
    ScriptedBroker &operator=(const ScriptedBroker &) = delete;

    // Waits until the script has come to its end.
    void finish();

private:
    Fd listener;
    std::thread thread;
};

// Steps of scripts. The reply functions read one request and answer it.
void greet(int fd, uint32_t client_id = 0x01020304);
Bytes reply_object(int fd, uint32_t object_id);
Bytes reply_status(int fd, uint32_t status);
Bytes event_message(uint16_t seq, uint32_t object_id, const std::string &name, const Bytes &members);

// A child process that is ended with its owner.
class Process {
public:
    explicit Process(const std::vector<std::string> &arguments);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const {
        return child;
    }
    void signal(int number) const;
    // The exit status, 128 + number when a signal ended it, or -1 when it still runs after all patience.
    int wait();
    // What it has written to its standard error, read to the end.
    std::string errors();

private:
    pid_t child = -1;
    Fd error_pipe;
};

// The real broker at a socket in a directory of its own.
class Broker {
public:
    Broker();
    std::string socket() const;
    // A connection that has got its greeting; `id` gets the client's id.
    Fd client(uint32_t *id = nullptr) const;
    // Adds an object and returns its id.
    static uint32_t add_object(int fd, uint16_t seq = 1);
    // Has the object listen, and returns the status.
    static uint32_t listen(int fd, uint32_t object_id, const std::string &pattern, uint16_t seq = 2);
    // Sends an event, and returns the status.
    static uint32_t send(int fd, const std::string &name, const Bytes &members, uint16_t seq = 3);

    TempDir dir;
    Process process;
};

// The status in a STATUS message; all ones when it is none.
uint32_t status_in(const Bytes &message);

struct SessionRecord {
    std::string client;
    bool from_broker;
    Bytes bytes;
};

std::vector<SessionRecord> recorded_session();

// Waits until `condition` holds, looking again and again; whether it did before patience ended.
bool eventually(const std::function<bool()> &condition);

// An event loop that ends by itself when a test forgets to end it.
class LoopTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    uloop_timeout guard = {};
    static bool guard_fired;
};
