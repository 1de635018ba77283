// The unit tests' interfaces, made by iproute2's command for a test that is emulated: the emulator passes a message of
// route netlink on without turning the bytes of what is nested in its attributes, and runs a command of the machine's
// own in the test's namespaces.
#include "support/links.h"

#include <cerrno>
#include <initializer_list>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void become_ip(const std::vector<char *> &arguments) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max; // the test may have left itself no descriptor
    setrlimit(RLIMIT_NOFILE, &limit);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

int ip(std::initializer_list<std::string> words) {
    std::vector<std::string> copies{"ip"};
    copies.insert(copies.end(), words);
    std::vector<char *> arguments;
    for (std::string &word : copies)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0)
        become_ip(arguments);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return errno;
    return status == 0 ? 0 : EIO;
}

} // namespace

int link_make_pair(const named_link &link, const named_link &peer) {
    const std::string mtu = std::to_string(PEER_MTU);
    const std::string peer_index = std::to_string(peer.index);
    if (link.index == 0)
        return ip({"link", "add", "name", link.name, "type", "veth", "peer", "name", peer.name, "index", peer_index,
                   "mtu", mtu});
    return ip({"link", "add", "name", link.name, "index", std::to_string(link.index), "type", "veth", "peer", "name",
               peer.name, "index", peer_index, "mtu", mtu});
}

int link_set_up(const std::string &name) {
    return ip({"link", "set", "dev", name, "up"});
}

int link_rename(const std::string &name, const std::string &other) {
    const int error = ip({"link", "set", "dev", name, "down"});
    return error != 0 ? error : ip({"link", "set", "dev", name, "name", other});
}

void link_remove(const std::string &name) {
    (void)ip({"link", "delete", "dev", name});
}
