// What anyone may put in the place of a runtime or UCI file, in folders that are everybody's.
#include "probe_test.h"

#include "core/json_file.h"
#include "probes/ap_clients.h"
#include "probes/node_state.h"
#include "probes/uci_options.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char CLIENT_FILE[] = "/tmp/client_mgmt/ap_client_list";
constexpr char OPTION_FILE[] = "/etc/config/tolmux";
constexpr char CHANGES[] = "/var/state/tolmux";
constexpr size_t LIMIT = 1048576;

void make_pipe(const char *path) {
    ASSERT_EQ(mkfifo(path, 0666), 0);
}
void make_folder(const char *path) {
    ASSERT_EQ(mkdir(path, 0777), 0);
}
void make_socket(const char *path) {
    const unique_fd fd(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    strcpy(address.sun_path, path);
    ASSERT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}
void link_to_an_endless_file(const char *path) {
    ASSERT_EQ(symlink("/dev/zero", path), 0);
}
void make_a_sparse_gigabyte(const char *path) {
    std::ofstream{path};
    ASSERT_EQ(truncate(path, 1 << 30), 0);
}
// It would parse, were it not a byte too long.
void exceed_the_limit(const char *path) {
    write_file(path, std::string(LIMIT - 1, ' ') + "{}");
}

struct hostile_row {
    const char *name;
    void (*make)(const char *path);
};

class HostileFile : public probe_rows<hostile_row> {
protected:
    HostileFile() {
        getrusage(RUSAGE_SELF, &before_);
    }
    // Nothing was read into memory that is not taken.
    ~HostileFile() override {
        rusage now{};
        getrusage(RUSAGE_SELF, &now);
        EXPECT_LT(now.ru_maxrss - before_.ru_maxrss, 16 * 1024) << "kilobytes";
    }
    static void put_at(const char *path) {
        write_file(path, "");
        remove_file(path);
        GetParam().make(path);
    }
    rusage before_{};
};

INSTANTIATE_TEST_SUITE_P(Files, HostileFile,
                         testing::Values(hostile_row{"NamedPipe", make_pipe}, hostile_row{"Folder", make_folder},
                                         hostile_row{"Socket", make_socket},
                                         hostile_row{"LinkToAnEndlessFile", link_to_an_endless_file},
                                         hostile_row{"SparseGigabyte", make_a_sparse_gigabyte},
                                         hostile_row{"OneByteTooMany", exceed_the_limit}),
                         row_name<hostile_row>);

TEST_P(HostileFile, InPlaceOfTheWorkModeIsNoneThatParses) {
    put_at(WORK_MODE);
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_UNKNOWN);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
    EXPECT_EQ(kolt_is_direct_connect_ap(), 1);
    remove_file(WORK_MODE);
}

TEST_P(HostileFile, InPlaceOfALinkFileIsALinkThatIsDown) {
    const at_log_level debug(2);
    put_at("/tmp/plc_runtime_info");
    EXPECT_EQ(kolt_check_link_state(KOLT_LINK_PLC), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "kolt_check_link_state",
                                               "Debug: parse link state /tmp/plc_runtime_info"}));
    remove_file("/tmp/plc_runtime_info");
}

TEST_P(HostileFile, InPlaceOfTheMeshDevicesLeavesTheCountAlone) {
    put_at("/tmp/sync-server/mesh_dev_list");
    uint8_t count = 77;
    EXPECT_EQ(kolt_get_mesh_dev_num(&count), 0);
    EXPECT_EQ(count, 77);
    EXPECT_THAT(logged(), IsEmpty());
    remove_file("/tmp/sync-server/mesh_dev_list");
}

TEST_P(HostileFile, InPlaceOfTheClientListLeavesTheRecordAlone) {
    put_at(CLIENT_FILE);
    kolt_ap_client_list list{};
    list.count = 7;
    EXPECT_EQ(kolt_get_ap_client_list(&list), 0);
    EXPECT_EQ(list.count, 7);
    EXPECT_THAT(logged(), IsEmpty());
    remove_file(CLIENT_FILE);
}

TEST_P(HostileFile, InPlaceOfUciFilesIsALookUpThatFails) {
    for (const char *path : {OPTION_FILE, CHANGES}) {
        remove_file(CHANGES);
        write_file(OPTION_FILE, "config tolmux 'tolmux'\n\toption TrafficPlcRoot '1'\n");
        EXPECT_EQ(plc_is_root(), 1);
        clear_log();
        put_at(path);
        EXPECT_EQ(plc_is_root(), 0) << path;
        EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "uci_get_value",
                                                   "Error: fail to get ptr tolmux.tolmux.TrafficPlcRoot "}));
        remove_file(path);
    }
}

class LargeFile : public probe {};

TEST_F(LargeFile, RuntimeFileOfTheLimitIsRead) {
    std::string text = R"({"work_mode": "RE"})";
    text += std::string(LIMIT - text.size(), ' ');
    write_file(WORK_MODE, text);
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_RE);
    EXPECT_THAT(logged(), IsEmpty());
    remove_file(WORK_MODE);
}

TEST_F(LargeFile, UciFileOfTheLimitIsRead) {
    std::string text = "config tolmux 'tolmux'\n\toption TrafficPlcRoot '1'\n#";
    text += std::string(LIMIT - text.size(), 'x');
    write_file(OPTION_FILE, text);
    EXPECT_EQ(plc_is_root(), 1);
    EXPECT_THAT(logged(), IsEmpty());
    remove_file(OPTION_FILE);
}

// More than what it was when it was opened may come out of a file that somebody writes to.
TEST_F(LargeFile, OnlySoMuchIsReadAsWasAskedFor) {
    const unique_fd endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    std::string bytes(1000, 'x');
    EXPECT_EQ(kolt_read_up_to(endless.get(), bytes.data(), 900), 900);
    EXPECT_EQ(bytes, std::string(900, '\0') + std::string(100, 'x'));
}

// Who hangs up with something unread resets the connection, behind what it has sent.
TEST_F(LargeFile, TextBeforeAFailureIsNoText) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const unique_fd reader(ends[0]);
    ASSERT_EQ(write(ends[0], "x", 1), 1);
    ASSERT_EQ(write(ends[1], "{}", 2), 2);
    close(ends[1]);
    char bytes[100];
    EXPECT_EQ(kolt_read_up_to(reader.get(), bytes, sizeof bytes), -1);
}

TEST_F(LargeFile, ConfigurationMayBeAnyKindOfFile) {
    EXPECT_EQ(mkfifo("/tmp/configuration", 0600), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        std::ofstream("/tmp/configuration") << R"({"enable": true})";
        _exit(0);
    }
    EXPECT_TRUE(kolt_read_configuration("/tmp/configuration"));
    EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
    remove_file("/tmp/configuration");
}

} // namespace
