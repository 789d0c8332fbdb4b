// The settings profile: file format, cursor, name order, and replacing the file safely.
#include "tavik/tk_profile.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using tavik::profile;
namespace fs = std::filesystem;

namespace {

// Every test works in a private directory under TMPDIR, removed afterwards with all it holds.
class ProfileTest : public ::testing::Test {
protected:
    std::string dir = fs::temp_directory_path() / "profile_test.XXXXXX", path;

    void SetUp() override {
        ASSERT_NE(mkdtemp(&dir[0]), nullptr);
        path = dir + "/settings.ini";
    }
    void TearDown() override { fs::remove_all(dir); }
    void write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    std::string read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

}  // namespace

TEST_F(ProfileTest, LoadFollowsTheFileFormatAndSaveWritesNameOrderAndTwoDecimals) {
    write(
        "x=before any section\n[]\ne=empty\n[\n[Section] trailing\n-c=comment\n Key = 1 \n"
        " a = b=c \nline = a b \r\nno equals sign\n[open\nafter=open\n[MEM]\nother=2\n");
    profile p(true);
    p["x"] = 5;  // no section: nothing is made
    EXPECT_EQ(static_cast<char*>(p), nullptr);
    p.section("mem")["kept"] = 1;  // loading merges with what is there
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(static_cast<int>(p.section("SECTION")["KEY"]), 1);
    EXPECT_STREQ(p.checkContainsKey("a", "after", "-c", "y", nullptr), "-c");
    p[7ul];  // past the last value
    EXPECT_EQ(p.Name(), nullptr);
    p["pi"] = 3.14159;
    p["f"] = 2.5f;
    p["l"] = -7L;
    p["c"] = 'q';
    EXPECT_DOUBLE_EQ(static_cast<double>(p["pi"]), 3.14);
    ASSERT_EQ(p.save(), 1);
    // "[" and "[open" are no headers; names and values are trimmed, and values lose their line
    // feed but keep a carriage return.
    EXPECT_EQ(read(path),
              "[]\ne=empty\n[mem]\nkept=1\nother=2\n[Section]\na=b=c\nafter=open\nc=q\nf=2.50\n"
              "Key=1\nl=-7\nline=a b \r\npi=3.14\n");
    EXPECT_FALSE(fs::exists(path + ".tmp"));

    // Removing the value or section under the cursor, or replacing that section, clears it.
    EXPECT_TRUE(p.removeValue("PI"));
    EXPECT_EQ(p.Name(), nullptr);
    p["c"];
    EXPECT_EQ(p.removeSection("section"), 1);
    EXPECT_EQ(p.Name(), nullptr);
    p.section("mem");
    p.appendSection(" mem ");  // a blank-padded name whose trimmed form exists
    EXPECT_EQ(p.currentProfileSection, nullptr);
    EXPECT_EQ(p.section("mem").getValueCount(), 0u);
}

TEST_F(ProfileTest, OnlyALoadedChangeableProfileIsWrittenAlsoAtDestruction) {
    EXPECT_FALSE(profile(true).loadDirect((dir + "/no/such/dir/x.ini").c_str()));
    {
        profile p(false);
        ASSERT_TRUE(p.loadDirect(path.c_str()));  // a missing file is created empty
        p.section("s")["k"] = 2;
        EXPECT_EQ(p.save(), 0);
    }
    EXPECT_TRUE(fs::exists(path) && read(path).empty());
    EXPECT_EQ(profile(true).save(), 0);  // not loaded

    setenv("TAVIK_PROFILE_TEST", path.c_str(), 1);
    {
        profile p("TAVIK_PROFILE_TEST", true);
        ASSERT_TRUE(p.loaded);
        p.section("s")["k"] = 42;
    }
    unsetenv("TAVIK_PROFILE_TEST");
    EXPECT_EQ(read(path), "[s]\nk=42\n");

    // An overlong line is skipped whole, and the profile stays unloaded so as not to lose it.
    std::string longest(profile::lineLimit - 5, 'v');  // "full=" and these fill a line
    std::string text = "[s]\nk=" + std::string(5000, 'x') + "=bogus\nok=1\nfull=" + longest + "\n";
    write(text);
    {
        profile p(true);
        EXPECT_FALSE(p.loadDirect(path.c_str()));
        p.section("s");
        EXPECT_EQ(p.getValueCount(), 2u);
        EXPECT_TRUE(longest == static_cast<char*>(p["full"]));
        EXPECT_EQ(p.save(), 0);
    }
    EXPECT_EQ(read(path), text);
}

TEST_F(ProfileTest, FailedSaveKeepsTheOldFileWhole) {
    write("[s]\nk=old\n");
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    profile p(true);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    p.section("s")["k"] = "new";
    std::string temporary = path + ".tmp";

    ASSERT_TRUE(fs::create_directory(temporary));  // the temporary file cannot be opened
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    ASSERT_TRUE(fs::remove(temporary));

    fs::create_symlink("/dev/full", temporary);  // writing it fails at the flush
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    EXPECT_FALSE(fs::exists(temporary));

    EXPECT_EQ(p.save(), 1);  // a whole new file replaces the old one and keeps its permissions
    EXPECT_EQ(read(path), "[s]\nk=new\n");
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    ASSERT_TRUE(fs::remove(path) && fs::create_directory(path));  // the rename over it fails
    std::ofstream(path + "/keep") << "x";
    EXPECT_EQ(p.save(), 0);
    EXPECT_FALSE(fs::exists(temporary));
    EXPECT_EQ(read(path + "/keep"), "x");
}
