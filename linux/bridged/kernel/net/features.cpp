// Asking the kernel and the process, in words for the user.
#include "kernel/net/features.h"

#include "kernel/net/text.h"
#include "kernel/net/trial.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

// What the programs and the bridge's settings need.
constexpr unsigned OLDEST_MAJOR = 5;
constexpr unsigned OLDEST_MINOR = 10;

// Of newer kernels than some systems' headers.
constexpr unsigned CAPABILITY_BPF = 39;

feature make(feature_answer answer, std::initializer_list<std::string_view> sentence) {
    feature made;
    made.answer = answer;
    join_text(&made.sentence, sentence);
    return made;
}

uint64_t effective_capabilities() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0)
        return 0;
    return uint64_t{data[1].effective} << 32 | data[0].effective;
}

// Shortens the path to its folder; false when there is none above.
bool go_up(char *path) {
    char *slash = strrchr(path, '/');
    if (slash == nullptr || strcmp(path, "/") == 0)
        return false;
    slash[slash == path ? 1 : 0] = '\0';
    return true;
}

} // namespace

feature judge_release(const char *release) {
    unsigned major = 0;
    unsigned minor = 0;
    if (sscanf(release, "%u.%u", &major, &minor) != 2) // NOLINT(cert-err34-c): a number of a kernel fits
        return make(FEATURE_UNKNOWN, {"the kernel calls itself ", release});
    const bool enough = major > OLDEST_MAJOR || (major == OLDEST_MAJOR && minor >= OLDEST_MINOR);
    return make(enough ? FEATURE_YES : FEATURE_NO, {"the kernel is ", release, ", and must be 5.10 or newer"});
}

feature judge_capability(const char *name, uint64_t effective, std::span<const unsigned> any_of) {
    const auto is_effective = [=](unsigned bit) { return (effective >> bit & 1) != 0; };
    if (std::any_of(any_of.begin(), any_of.end(), is_effective))
        return make(FEATURE_YES, {"this process has ", name});
    return make(FEATURE_NO, {"this process lacks ", name});
}

feature judge_trial(const char *what, int code, int why_not) {
    if (why_not != 0)
        return make(FEATURE_UNKNOWN, {what, " cannot be tried: ", strerror(why_not)});
    if (code != 0)
        return make(FEATURE_NO, {what, " fails: ", strerror(code)});
    return make(FEATURE_YES, {what, " works"});
}

feature pin_folder_find(const char *pin_folder) {
    char path[PATH_MAX];
    (void)snprintf(path, sizeof path, "%s", pin_folder);
    struct statfs found {};
    int result = statfs(path, &found);
    while (result != 0 && errno == ENOENT && go_up(path))
        result = statfs(path, &found);
    if (result != 0)
        return make(FEATURE_UNKNOWN, {"cannot look at ", path, ": ", strerror(errno)});
    const bool is_bpf = static_cast<unsigned long>(found.f_type) == BPF_FS_MAGIC;
    if (!is_bpf && (effective_capabilities() >> CAP_SYS_ADMIN & 1) == 0)
        return make(FEATURE_NO, {pin_folder, " is not on a BPF file system, and this process may not mount one"});
    if (faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) != 0)
        return make(FEATURE_NO, {"cannot write to ", path, ": ", strerror(errno)});
    return make(FEATURE_YES,
                {pin_folder, is_bpf ? " is on a BPF file system" : " gets a BPF file system at the start"});
}

kernel_features features_find(const char *pin_folder) {
    utsname system{};
    (void)uname(&system); // cannot fail with a buffer
    const uint64_t effective = effective_capabilities();
    const unique_fd program = load_trial_program();
    const int loaded = program ? 0 : errno;
    const trial_results tried = try_in_namespace(program.get());
    const int not_attached = tried.clsact != 0 ? tried.clsact : loaded;
    return {
        .kernel = judge_release(system.release),
        .cap_net_admin = judge_capability("CAP_NET_ADMIN", effective, {{CAP_NET_ADMIN}}),
        .cap_net_raw = judge_capability("CAP_NET_RAW", effective, {{CAP_NET_RAW}}),
        .cap_bpf = judge_capability("CAP_BPF or CAP_SYS_ADMIN", effective, {{CAPABILITY_BPF, CAP_SYS_ADMIN}}),
        .bridge = judge_trial("making a bridge", tried.bridge, tried.space),
        .clsact = judge_trial("making the clsact hook", tried.clsact, tried.space),
        .programs = judge_trial("loading a program for traffic control", loaded, 0),
        .attach = judge_trial("attaching a program to the hook", tried.attach, not_attached),
        .pin_folder = pin_folder_find(pin_folder),
    };
}
