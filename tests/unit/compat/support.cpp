// What the tests of the library subsets share.
#include "support.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <json-c/json.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Bytes big_endian(uint64_t value, size_t size) {
    Bytes bytes;
    for (size_t i = size; i > 0; i--)
        bytes.push_back(static_cast<char>(value >> (8 * (i - 1))));
    return bytes;
}

uint32_t number_at(const Bytes &bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++)
        value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    return value;
}

void pad(Bytes &bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

} // namespace

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "compat-XXXXXX").string();
    root = mkdtemp(pattern.data()) ? pattern : "";
    EXPECT_NE(root, "");
}

TempDir::~TempDir() {
    std::error_code ignored;
    if (!root.empty())
        std::filesystem::remove_all(root, ignored);
}

std::string TempDir::path(const std::string &name) const {
    return root + "/" + name;
}

void TempDir::write(const std::string &name, const std::string &content) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
}

Fd::~Fd() {
    if (fd >= 0)
        close(fd);
}

Fd &Fd::operator=(Fd &&other) noexcept {
    std::swap(fd, other.fd);
    return *this;
}

int Fd::release() {
    const int number = fd;
    fd = -1;
    return number;
}

Bytes from_hex(const std::string &hex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string to_hex(const Bytes &bytes) {
    std::string hex;
    for (const char byte : bytes) {
        hex.push_back("0123456789abcdef"[static_cast<unsigned char>(byte) >> 4]);
        hex.push_back("0123456789abcdef"[byte & 15]);
    }
    return hex;
}

Bytes wire_message(unsigned type, uint16_t seq, uint32_t peer, const Bytes &attributes) {
    return big_endian(0, 1) + big_endian(type, 1) + big_endian(seq, 2) + big_endian(peer, 4) +
           big_endian(4 + attributes.size(), 4) + attributes;
}

Bytes number_attr(int id, uint32_t value) {
    return raw_attr(id, big_endian(value, 4));
}

Bytes text_attr(int id, const std::string &text) {
    return raw_attr(id, text + '\0');
}

Bytes raw_attr(int id, const Bytes &payload) {
    Bytes attr = big_endian(static_cast<uint64_t>(id) << 24 | (4 + payload.size()), 4) + payload;
    pad(attr);
    return attr;
}

Bytes member(int type, const std::string &name, const Bytes &value) {
    Bytes head = big_endian(name.size(), 2) + name + '\0';
    pad(head);
    return raw_attr(0x80 | type, head + value);
}

Bytes number_member(const std::string &name, uint32_t value) {
    return member(BLOBMSG_TYPE_INT32, name, big_endian(value, 4));
}

Bytes text_member(const std::string &name, const std::string &value) {
    return member(BLOBMSG_TYPE_STRING, name, value + '\0');
}

bool readable(int fd) {
    pollfd entry = {fd, POLLIN, 0};
    return poll(&entry, 1, PATIENCE_MS) == 1;
}

bool send_bytes(int fd, const Bytes &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        pollfd entry = {fd, POLLOUT, 0};
        const ssize_t sent = poll(&entry, 1, PATIENCE_MS) == 1
                                 ? send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT)
                                 : -1;
        if (sent <= 0)
            return false;
        done += static_cast<size_t>(sent);
    }
    return true;
}

Bytes receive_bytes(int fd, size_t len) {
    Bytes bytes(len, '\0');
    size_t have = 0;
    while (have < len && readable(fd)) {
        const ssize_t got = recv(fd, &bytes[have], len - have, 0);
        if (got <= 0)
            break;
        have += static_cast<size_t>(got);
    }
    bytes.resize(have);
    return bytes;
}

Bytes receive_message(int fd) {
    const Bytes head = receive_bytes(fd, 12);
    return head.size() < 12 ? head : head + receive_bytes(fd, (number_at(head, 8) & 0xffffff) - 4);
}

bool closes(int fd) {
    Bytes sink(4096, '\0');
    while (readable(fd)) {
        if (recv(fd, sink.data(), sink.size(), 0) <= 0)
            return true;
    }
    return false;
}

Fd listen_at(const std::string &path) {
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0) << path;
    EXPECT_EQ(listen(fd.get(), 4), 0);
    return fd;
}

Fd connect_to(const std::string &path) {
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_of(path);
    const int result = connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    return result == 0 ? std::move(fd) : Fd();
}

ScriptedBroker::ScriptedBroker(const std::string &path, Script script) : listener(listen_at(path)) {
    thread = std::thread([this, script = std::move(script)] {
        // The signals under test are for the thread that runs the loop.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        if (!readable(listener.get()))
            return;
        const Fd connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        script(connection.get());
    });
}

ScriptedBroker::~ScriptedBroker() {
    finish();
}

void ScriptedBroker::finish() {
    if (thread.joinable())
        thread.join();
}

void greet(int fd, uint32_t client_id) {
    EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_HELLO, 0, client_id)));
}

Bytes reply_object(int fd, uint32_t object_id) {
    const Bytes request = receive_message(fd);
    if (request.size() < 12)
        return request;
    const auto seq = static_cast<uint16_t>(number_at(request, 0) & 0xffff);
    EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_DATA, seq, 0, number_attr(UBUS_ATTR_OBJID, object_id)) +
                                   wire_message(UBUS_MSG_STATUS, seq, 0, number_attr(UBUS_ATTR_STATUS, 0))));
    return request;
}

Bytes reply_status(int fd, uint32_t status) {
    const Bytes request = receive_message(fd);
    if (request.size() < 12)
        return request;
    const auto seq = static_cast<uint16_t>(number_at(request, 0) & 0xffff);
    EXPECT_TRUE(send_bytes(
        fd, wire_message(UBUS_MSG_STATUS, seq, number_at(request, 4), number_attr(UBUS_ATTR_STATUS, status))));
    return request;
}

Bytes event_message(uint16_t seq, uint32_t object_id, const std::string &name, const Bytes &members) {
    return wire_message(UBUS_MSG_INVOKE, seq, 0,
                        number_attr(UBUS_ATTR_OBJID, object_id) + text_attr(UBUS_ATTR_METHOD, name) +
                            raw_attr(UBUS_ATTR_DATA, members));
}

Process::Process(const std::vector<std::string> &arguments) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    error_pipe = Fd(ends[0]);
    const Fd write_end(ends[1]);
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    child = fork();
    if (child == 0) {
        dup2(write_end.get(), STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    EXPECT_GT(child, 0);
}

Process::~Process() {
    if (child > 0) {
        signal(SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

void Process::signal(int number) const {
    if (child > 0)
        kill(child, number);
}

int Process::wait() {
    int status = 0;
    if (!eventually([&] { return waitpid(child, &status, WNOHANG) == child; }))
        return -1;
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Process::errors() {
    std::string text;
    char part[512];
    ssize_t got = 0;
    while (readable(error_pipe.get()) && (got = read(error_pipe.get(), part, sizeof(part))) > 0)
        text.append(part, static_cast<size_t>(got));
    return text;
}

Broker::Broker() : process({KOLT_UBUSD, "-s", dir.path("run/bus.sock")}) {
    EXPECT_TRUE(eventually([this] { return connect_to(socket()).get() >= 0; }));
}

std::string Broker::socket() const {
    return dir.path("run/bus.sock");
}

Fd Broker::client(uint32_t *id) const {
    Fd fd = connect_to(socket());
    const Bytes greeting = receive_message(fd.get());
    EXPECT_EQ(greeting.size(), 12u);
    if (id && greeting.size() == 12)
        *id = number_at(greeting, 4);
    return fd;
}

uint32_t Broker::add_object(int fd, uint16_t seq) {
    EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_ADD_OBJECT, seq, 0)));
    const Bytes data = receive_message(fd);
    EXPECT_EQ(status_in(receive_message(fd)), 0u);
    return data.size() == 20 ? number_at(data, 16) : 0;
}

uint32_t Broker::listen(int fd, uint32_t object_id, const std::string &pattern, uint16_t seq) {
    const Bytes members = number_member("object", object_id) + text_member("pattern", pattern);
    EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_INVOKE, seq, 1,
                                            number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "register") +
                                                raw_attr(UBUS_ATTR_DATA, members))));
    return status_in(receive_message(fd));
}

uint32_t Broker::send(int fd, const std::string &name, const Bytes &members, uint16_t seq) {
    const Bytes data = text_member("id", name) + member(BLOBMSG_TYPE_TABLE, "data", members);
    EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_INVOKE, seq, 1,
                                            number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "send") +
                                                raw_attr(UBUS_ATTR_DATA, data))));
    return status_in(receive_message(fd));
}

uint32_t status_in(const Bytes &message) {
    if (message.size() < 20 || message[1] != UBUS_MSG_STATUS || number_at(message, 12) != 0x01000008)
        return UINT32_MAX;
    return number_at(message, 16);
}

std::vector<SessionRecord> recorded_session() {
    std::vector<SessionRecord> records;
    std::ifstream file(SESSION_FILE);
    for (std::string line; std::getline(file, line);) {
        json_object *record = json_tokener_parse(line.c_str());
        const auto text = [record](const char *key) {
            return std::string(json_object_get_string(json_object_object_get(record, key)));
        };
        records.push_back({text("client"), text("from") == "broker", from_hex(text("bytes"))});
        json_object_put(record);
    }
    EXPECT_EQ(records.size(), 23u);
    return records;
}

bool eventually(const std::function<bool()> &condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool LoopTest::guard_fired;

void LoopTest::SetUp() {
    ASSERT_EQ(uloop_init(), 0);
    guard_fired = false;
    guard.cb = [](uloop_timeout *) {
        guard_fired = true;
        uloop_end();
    };
    uloop_timeout_set(&guard, PATIENCE_MS);
}

void LoopTest::TearDown() {
    uloop_done();
    EXPECT_FALSE(guard_fired) << "the loop had to be ended by force";
}
