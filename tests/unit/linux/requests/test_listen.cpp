// The socket itself: who may use it, and what is at its path.
#include "bridged/requests/listen.h"
#include "linux/support/server_test.h"

#include <cerrno>
#include <grp.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

class listen_test : public server_test {
protected:
    static struct stat status() {
        struct stat result {};
        EXPECT_EQ(stat(SOCKET_PATH, &result), 0);
        return result;
    }
};

TEST_F(listen_test, socket_is_for_its_owner_and_a_group) {
    EXPECT_EQ(status().st_mode & 07777, 0660U);
}

TEST_F(listen_test, socket_is_its_owner_s_alone_until_its_group_is_set) {
    const client_listener listener = listen_for_clients("/run/other");
    struct stat as_it_was_bound {};
    EXPECT_EQ(fstat(listener.fd.get(), &as_it_was_bound), 0);
    EXPECT_EQ(as_it_was_bound.st_mode & 07777, 0600U);
}

TEST_F(listen_test, group_kolt_is_its_group_where_there_is_one) {
    const std::string id = std::to_string(getgid()); // the one that may be given away without further rights
    write_file("/etc/group", "other:x:4242:\nkolt:x:" + id + ":\n");
    open_server(node_.handlers());
    EXPECT_EQ(status().st_gid, getgid());
    const client_listener listener = listen_for_clients("/run/other");
    EXPECT_EQ(listener.group, getgid());
}

TEST_F(listen_test, live_server_is_left_alone) {
    EXPECT_EQ(requests_open(SOCKET_PATH, node_.handlers()), nullptr);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_TRUE(serves());
}

TEST_F(listen_test, socket_of_a_dead_server_is_replaced) {
    const std::string path = "/run/dead";
    {
        const unique_fd dead(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const sockaddr_un address = socket_address(path);
        ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        ASSERT_EQ(listen(dead.get(), 1), 0);
    }
    requests_server *server = requests_open(path.c_str(), node_.handlers());
    EXPECT_NE(server, nullptr);
    requests_close(server);
}

TEST_F(listen_test, name_goes_with_the_server) {
    requests_close(server_);
    server_ = nullptr;
    struct stat result {};
    EXPECT_NE(stat(SOCKET_PATH, &result), 0);
    requests_close(nullptr);
}

TEST_F(listen_test, path_that_cannot_be_had_is_an_error) {
    EXPECT_EQ(requests_open("/no/such/folder", node_.handlers()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(requests_open("", node_.handlers()), nullptr);
    EXPECT_EQ(requests_open(std::string(200, 'x').c_str(), node_.handlers()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    write_file("/run/file", "is no socket");
    EXPECT_EQ(requests_open("/run/file", node_.handlers()), nullptr);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(std::filesystem::exists("/run/file"));
}

// What a process sees that root of its own namespaces is nobody to: the peer is user 65534, of group 65534.
bool nobody_is_allowed(gid_t group) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWUSER) != 0)
            _exit(2);
        _exit(peer_is_allowed(ends[0], group) ? 1 : 0);
    }
    int result = -1;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(WIFEXITED(result) && WEXITSTATUS(result) <= 1);
    return WEXITSTATUS(result) == 1;
}

TEST_F(listen_test, whoever_is_not_allowed_is_hung_up_on) {
    const pid_t child = fork();
    if (child == 0) {
        uloop_done();
        if (unshare(CLONE_NEWUSER) != 0 || uloop_init() != 0 ||
            requests_open("/run/strict", node_.handlers()) == nullptr)
            _exit(2);
        const unique_fd client = connect_to("/run/strict");
        _exit(client && was_hung_up(client) ? 0 : 1);
    }
    int result = -1;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
}

TEST_F(listen_test, only_root_and_the_group_are_allowed) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    EXPECT_TRUE(peer_is_allowed(ends[0], static_cast<gid_t>(-1)));
    close(ends[0]);
    close(ends[1]);
    EXPECT_FALSE(nobody_is_allowed(static_cast<gid_t>(-1)));
    EXPECT_FALSE(nobody_is_allowed(4242));
    EXPECT_TRUE(nobody_is_allowed(65534));
}

} // namespace
