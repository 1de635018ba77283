// What kernel and process can do.
#include "kernel/net/features.h"

#include "kernel/net/links.h"
#include "kernel/net/trial.h"
#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::StrEq;

namespace {

// Root of a user namespace alone can make network namespaces and what is in them, but has nothing to say about
// programs.
// While it lives. Capabilities are a thread's, and every test has a process of its own.
class without_right_to_mount {
public:
    without_right_to_mount() {
        change(false);
    }

    ~without_right_to_mount() {
        change(true);
    }

private:
    static void change(bool raised) {
        __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
        __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
        ASSERT_EQ(0, syscall(SYS_capget, &header, data));
        const uint32_t bit = 1U << CAP_SYS_ADMIN;
        data[0].effective = raised ? data[0].effective | bit : data[0].effective & ~bit;
        ASSERT_EQ(0, syscall(SYS_capset, &header, data));
    }
};

class features_test : public kernel_test {
protected:
    ~features_test() override {
        umount("/tmp/bpf");
    }

    static bool mount_bpf() {
        std::filesystem::create_directory("/tmp/bpf");
        return mount("bpf", "/tmp/bpf", "bpf", 0, nullptr) == 0;
    }

    const bool is_root_ = mount_bpf();
    const feature_answer for_root_ = is_root_ ? FEATURE_YES : FEATURE_NO;
};

TEST_F(features_test, root_can_do_everything) {
    const kernel_features features = features_find("/tmp/bpf/kolt");
    for (const feature &found : {features.kernel, features.cap_net_admin, features.cap_net_raw, features.cap_bpf,
                                 features.bridge, features.clsact}) {
        EXPECT_EQ(found.answer, FEATURE_YES) << found.sentence.data();
        EXPECT_THAT(found.sentence.data(), testing::StrNe(""));
    }
    EXPECT_EQ(features.programs.answer, for_root_) << features.programs.sentence.data();
    EXPECT_EQ(features.attach.answer, is_root_ ? FEATURE_YES : FEATURE_UNKNOWN) << features.attach.sentence.data();
    EXPECT_EQ(features.pin_folder.answer, for_root_) << features.pin_folder.sentence.data();
}

TEST_F(features_test, looking_changes_nothing) {
    // The file system has files of the kernel's own.
    const auto names = [this] {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::recursive_directory_iterator("/tmp/bpf"))
            found.push_back(entry.path());
        EXPECT_EQ(links_dump(rtnl_, [&](const link_info &link) { found.emplace_back(link.name.data()); }), 0);
        return found;
    };
    const auto before = names();
    (void)features_find("/tmp/bpf/kolt/deeper");
    EXPECT_EQ(names(), before);
}

TEST_F(features_test, a_process_without_the_rights_is_told_which_are_missing) {
    const without_capability admin(CAP_NET_ADMIN);
    const without_capability raw(CAP_NET_RAW);
    const without_capability system(CAP_SYS_ADMIN);
    const without_capability bpf(39);
    const kernel_features features = features_find("/tmp");
    EXPECT_EQ(features.cap_net_admin.answer, FEATURE_NO);
    EXPECT_EQ(features.cap_net_raw.answer, FEATURE_NO);
    EXPECT_EQ(features.cap_bpf.answer, FEATURE_NO);
    EXPECT_EQ(features.programs.answer, FEATURE_NO);
    EXPECT_THAT(features.programs.sentence.data(), HasSubstr("Operation not permitted"));
    EXPECT_EQ(features.attach.answer, FEATURE_UNKNOWN);
}

TEST_F(features_test, what_could_not_be_tried_is_not_denied) {
    const no_descriptors none;
    const kernel_features features = features_find("/tmp");
    EXPECT_EQ(features.bridge.answer, FEATURE_UNKNOWN);
    EXPECT_EQ(features.clsact.answer, FEATURE_UNKNOWN);
    EXPECT_EQ(features.attach.answer, FEATURE_UNKNOWN);
    EXPECT_THAT(features.bridge.sentence.data(), HasSubstr("Too many open files"));
}

TEST_F(features_test, a_trial_without_a_program_says_that_none_was_attached) {
    const trial_results results = try_in_namespace(-1);
    EXPECT_EQ(results.clsact, 0);
    EXPECT_EQ(results.attach, EBADF);
}

TEST_F(features_test, a_trial_with_something_else_than_a_program_fails_at_attaching_it) {
    const unique_fd no_program(dup(0));
    EXPECT_EQ(try_in_namespace(no_program.get()).attach, EINVAL);
}

struct release {
    const char *name;
    const char *text;
    feature_answer answer;
};

using judge_release_test = table_test<release>;

TEST_P(judge_release_test, by_its_first_two_numbers) {
    EXPECT_EQ(judge_release(GetParam().text).answer, GetParam().answer);
    EXPECT_THAT(judge_release(GetParam().text).sentence.data(), HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(kernels, judge_release_test,
                         testing::Values(release{"older", "5.9.16", FEATURE_NO},
                                         release{"much_older", "4.19.0-21-arm64", FEATURE_NO},
                                         release{"older_with_a_larger_second_number", "4.20", FEATURE_NO},
                                         release{"oldest_that_will_do", "5.10.0-28-amd64", FEATURE_YES},
                                         release{"newer", "5.15.167", FEATURE_YES},
                                         release{"newer_with_a_smaller_second_number", "6.1.0", FEATURE_YES},
                                         release{"nameless", "something else", FEATURE_UNKNOWN}),
                         row_name<release>);

struct capability {
    const char *name;
    uint64_t effective;
    std::vector<unsigned> any_of;
    feature_answer answer;
};

using judge_capability_test = table_test<capability>;

TEST_P(judge_capability_test, by_the_effective_set) {
    EXPECT_EQ(judge_capability("CAP", GetParam().effective, GetParam().any_of).answer, GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(sets, judge_capability_test,
                         testing::Values(capability{"none", 0, {12}, FEATURE_NO},
                                         capability{"that_one", 1U << 12, {12}, FEATURE_YES},
                                         capability{"all_but_that_one", ~(1ULL << 12), {12}, FEATURE_NO},
                                         capability{"first_of_two", 1ULL << 39, {39, 21}, FEATURE_YES},
                                         capability{"second_of_two", 1ULL << 21, {39, 21}, FEATURE_YES},
                                         capability{"neither_of_two", 1ULL << 7, {39, 21}, FEATURE_NO}),
                         row_name<capability>);

TEST(judge_trial_test, tells_what_works_what_does_not_and_what_is_not_known) {
    EXPECT_THAT(judge_trial("making tea", 0, 0).sentence.data(), StrEq("making tea works"));
    EXPECT_THAT(judge_trial("making tea", ENODEV, 0).sentence.data(), StrEq("making tea fails: No such device"));
    EXPECT_THAT(judge_trial("making tea", 0, EPERM).sentence.data(),
                StrEq("making tea cannot be tried: Operation not permitted"));
    EXPECT_EQ(judge_trial("making tea", 0, 0).answer, FEATURE_YES);
    EXPECT_EQ(judge_trial("making tea", ENODEV, 0).answer, FEATURE_NO);
    EXPECT_EQ(judge_trial("making tea", ENODEV, EPERM).answer, FEATURE_UNKNOWN);
}

TEST_F(features_test, a_pin_folder_that_is_yet_to_be_made_is_judged_by_what_it_will_stand_in) {
    for (const char *folder : {"/tmp/bpf", "/tmp/bpf/kolt", "/tmp/bpf/kolt/deeper/still/"})
        EXPECT_EQ(pin_folder_find(folder).answer, for_root_) << folder;
}

TEST_F(features_test, a_pin_folder_elsewhere_takes_the_right_to_mount) {
    for (const char *folder : {"/tmp", "/tmp/other/kolt", "/nobody/made/this"}) {
        EXPECT_EQ(pin_folder_find(folder).answer, FEATURE_YES) << folder;
        EXPECT_THAT(pin_folder_find(folder).sentence.data(), HasSubstr("gets a BPF file system at the start"));
    }
    const without_right_to_mount dropped;
    for (const char *folder : {"/tmp", "/tmp/other/kolt", "/nobody/made/this"}) {
        EXPECT_EQ(pin_folder_find(folder).answer, FEATURE_NO) << folder;
        EXPECT_THAT(pin_folder_find(folder).sentence.data(), HasSubstr("may not mount one"));
    }
}

TEST_F(features_test, a_pin_folder_that_cannot_be_looked_at_or_written_is_told) {
    EXPECT_EQ(pin_folder_find("").answer, FEATURE_UNKNOWN);
    EXPECT_EQ(pin_folder_find("relative").answer, FEATURE_UNKNOWN);
    (void)mount(nullptr, "/tmp/bpf", nullptr, MS_REMOUNT | MS_RDONLY | MS_BIND, nullptr); // root only
    EXPECT_EQ(pin_folder_find("/tmp/bpf/kolt").answer, FEATURE_NO);
    EXPECT_THAT(pin_folder_find("/tmp/bpf/kolt").sentence.data(), HasSubstr("Read-only file system"));
}

} // namespace
