// The command line of kolt-bridged.
#include "bridged/settings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct reading {
    bool goes_on = false;
    int status = -1;
    bridged_settings settings;
};

class Settings : public testing::Test {
protected:
    reading read(std::vector<std::string> words) {
        words_ = std::move(words);
        words_.insert(words_.begin(), "kolt-bridged");
        std::vector<char *> argv;
        for (std::string &word : words_)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        reading result;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        optind = 0; // begins anew
        result.goes_on = settings_read(static_cast<int>(words_.size()), argv.data(), &result.settings, &result.status);
        out_ = testing::internal::GetCapturedStdout();
        err_ = testing::internal::GetCapturedStderr();
        return result;
    }

    std::vector<std::string> words_; // the settings point into them
    std::string out_;
    std::string err_;
};

TEST_F(Settings, NothingSaidIsAnExtenderWithTheUsualFiles) {
    const reading result = read({});
    EXPECT_TRUE(result.goes_on);
    EXPECT_EQ(result.settings.action, BRIDGED_RUN);
    EXPECT_EQ(result.settings.mode, KOLT_MODE_RE);
    EXPECT_STREQ(result.settings.config_file, "/etc/kolt.json");
    EXPECT_STREQ(result.settings.run_folder, "/run/kolt-bridged");
    EXPECT_STREQ(result.settings.pin_folder, "/sys/fs/bpf/kolt");
    EXPECT_EQ(result.settings.interval_ms, 100U);
    EXPECT_EQ(result.settings.listen_ms, 400U);
}

TEST_F(Settings, EveryOptionIsTaken) {
    const reading result =
        read({"-c", "/a", "--mode", "HAP", "--run", "/b", "--pin=/c", "--interval", "50", "--listen", "60"});
    EXPECT_TRUE(result.goes_on);
    EXPECT_EQ(result.settings.mode, KOLT_MODE_HAP);
    EXPECT_STREQ(result.settings.config_file, "/a");
    EXPECT_STREQ(result.settings.run_folder, "/b");
    EXPECT_STREQ(result.settings.pin_folder, "/c");
    EXPECT_EQ(result.settings.interval_ms, 50U);
    EXPECT_EQ(result.settings.listen_ms, 60U);
}

TEST_F(Settings, AccessPointIsAnotherWordForTheRoot) {
    EXPECT_EQ(read({"--mode", "AP"}).settings.mode, KOLT_MODE_FAP);
    EXPECT_EQ(read({"--mode", "FAP"}).settings.mode, KOLT_MODE_FAP);
}

TEST_F(Settings, CheckAndReleaseAreActions) {
    EXPECT_EQ(read({"--check"}).settings.action, BRIDGED_CHECK);
    EXPECT_EQ(read({"--release"}).settings.action, BRIDGED_RELEASE);
}

TEST_F(Settings, HelpGoesToStandardOutputAndIsASuccess) {
    const reading result = read({"--help"});
    EXPECT_FALSE(result.goes_on);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(out_.find("Usage: kolt-bridged"), std::string::npos);
    EXPECT_EQ(err_, "");
}

TEST_F(Settings, WrongWordsAreNamedAndEndWithStatusTwo) {
    const std::vector<std::vector<std::string>> wrong = {{"--mode", "re"},
                                                         {"--interval", "9"},
                                                         {"--interval", "x"},
                                                         {"--interval", "10001"},
                                                         {"--interval", "-5"},
                                                         {"--listen", ""},
                                                         {"more"},
                                                         {"--no-such"}};
    for (const std::vector<std::string> &words : wrong) {
        const reading result = read(words);
        EXPECT_FALSE(result.goes_on) << words.back();
        EXPECT_EQ(result.status, 2) << words.back();
        EXPECT_NE(err_.find(words.back()), std::string::npos) << err_;
        EXPECT_EQ(out_, "");
    }
}

TEST_F(Settings, RunFolderIsShortEnoughForAllThatIsMadeInIt) {
    const std::string longest = "/" + std::string(59, 'a');
    EXPECT_TRUE(read({"--run", longest}).goes_on);
    const reading result = read({"--run", longest + "a"});
    EXPECT_FALSE(result.goes_on);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(err_, "kolt-bridged: the name of the folder is longer than 60 bytes: " + longest + "a\n");
    EXPECT_EQ(out_, "");
}

} // namespace
