// Namespaces, files and descriptor limits of the test process.
#include "support/sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void refuse(const char *step) {
    fprintf(stderr,
            "This test needs mount and network namespaces of its own, and the machine does not allow them: %s: %s\n",
            step, strerror(errno));
    exit(EXIT_FAILURE);
}

void must(int result, const char *step) {
    if (result != 0)
        refuse(step);
}

void write_id_map(const char *path, const std::string &text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.data(), text.size()) < 0)
        refuse(path);
    close(fd);
}

void unshare_namespaces() {
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (user == 0)
        return must(unshare(CLONE_NEWNS | CLONE_NEWNET), "unshare");
    must(unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET), "unshare");
    write_id_map("/proc/self/setgroups", "deny");
    write_id_map("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_id_map("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// The kernel's own /proc stays reachable under /run/proc, for the sanitizers and for what a test does not script.
void cover_proc() {
    must(mount("tmpfs", "/run", "tmpfs", 0, nullptr), "mount /run");
    fs::create_directory("/run/proc");
    must(mount("/proc", "/run/proc", nullptr, MS_BIND | MS_REC, nullptr), "bind /proc");
    must(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), "mount /proc");
    for (const char *entry : {"self", "stat", "sys", "meminfo", "cpuinfo", "thread-self"})
        fs::create_symlink(std::string("/run/proc/") + entry, std::string("/proc/") + entry);
    fs::create_directory("/proc/net");
    fs::create_symlink("/run/proc/self/net/dev", "/proc/net/dev");
}

// The leak check at a process's end looks the process up by its number, forked children of the test included.
void show_process() {
    const std::string number = std::to_string(getpid());
    (void)!symlink(("/run/proc/" + number).c_str(), ("/proc/" + number).c_str()); // there already after a reused number
}

} // namespace

void enter_sandbox() {
    unshare_namespaces();
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "make mounts private");
    cover_proc();
    show_process();
    must(pthread_atfork(nullptr, nullptr, show_process), "pthread_atfork");
    for (const char *folder : {"/tmp", "/etc", "/var"})
        must(mount("tmpfs", folder, "tmpfs", 0, nullptr), folder);
    for (const char *folder : {"/etc/config", "/var/state", "/var/run"})
        fs::create_directory(folder);
}

void write_file(const std::string &path, std::string_view text) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

void remove_file(const std::string &path) {
    fs::remove_all(path);
}

size_t open_descriptors() {
    size_t count = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        (void)entry;
        count++;
    }
    return count - 1; // the iterator has one of its own
}

no_descriptors::no_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit_ = limit.rlim_cur;
    // Descriptors below the first free number stay usable, all above it are refused.
    const int next = dup(0);
    close(next);
    limit.rlim_cur = static_cast<rlim_t>(next);
    setrlimit(RLIMIT_NOFILE, &limit);
}

no_descriptors::~no_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(limit_); // of 32 bits on some machines
    setrlimit(RLIMIT_NOFILE, &limit);
}
