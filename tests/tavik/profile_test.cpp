#include "tavik/tk_profile.h"

#include <ftw.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

using tavik::profile;

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
}

class ProfileTest : public ::testing::Test {
protected:
    std::string dir, path;

    void SetUp() override {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/profile_test.XXXXXX";
        ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
        dir = pattern;
        path = dir + "/settings.ini";
    }
    void TearDown() override { nftw(dir.c_str(), removeEntry, 8, FTW_DEPTH | FTW_PHYS); }

    void write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    std::string read(const std::string& file) {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }
    bool exists(const std::string& file) { return access(file.c_str(), F_OK) == 0; }
};

}  // namespace

TEST_F(ProfileTest, LoadFollowsTheFileFormat) {
    write(
        "x=before any section\n[]\ne=empty\n[\n[Section] trailing\n-c=comment\n Key = 1 \n"
        " a = b=c \nline = a b \r\nno equals sign\n[open\nafter=open\n");
    profile p(false);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(p.sectionTable.count, 2u);  // "[" and "[open" are no headers
    EXPECT_STREQ(static_cast<char*>(p.section("")["e"]), "empty");
    EXPECT_EQ(static_cast<int>(p.section("SECTION")["KEY"]), 1);
    EXPECT_STREQ(p.Name(), "Key");
    EXPECT_EQ(p.getValueCount(), 4u);
    EXPECT_STREQ(static_cast<char*>(p["a"]), "b=c");
    EXPECT_STREQ(static_cast<char*>(p["LINE"]), "a b \r");  // a line feed goes, a CR stays
    EXPECT_STREQ(static_cast<char*>(p["after"]), "open");
    EXPECT_STREQ(p.checkContainsKey("a", "after", "-c", "y", nullptr), "-c");
}

TEST_F(ProfileTest, SaveWritesNameOrderAndTwoDecimals) {
    write("[B]\nz=1\n[a]\nY=2\nx=3\n");
    profile p(true);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    p.section("a");
    p["pi"] = 3.14159;
    p["f"] = 2.5f;
    p["l"] = -7L;
    p["c"] = 'q';
    p["s"] = "text";
    EXPECT_DOUBLE_EQ(static_cast<double>(p["pi"]), 3.14);
    ASSERT_EQ(p.save(), 1);
    EXPECT_EQ(read(path), "[a]\nc=q\nf=2.50\nl=-7\npi=3.14\ns=text\nx=3\nY=2\n[B]\nz=1\n");
    EXPECT_FALSE(exists(path + ".tmp"));
    p[7ul];  // past the last value
    EXPECT_EQ(p.Name(), nullptr);
}

TEST_F(ProfileTest, OnlyAChangeableProfileIsWrittenAlsoAtDestruction) {
    write("[s]\nk=1\n");
    {
        profile p(false);
        ASSERT_TRUE(p.loadDirect(path.c_str()));
        p.section("s")["k"] = 2;
        EXPECT_EQ(p.save(), 0);
    }
    EXPECT_EQ(read(path), "[s]\nk=1\n");
    EXPECT_FALSE(exists(path + ".tmp"));
    EXPECT_EQ(profile(true).save(), 0);  // not loaded

    setenv("TAVIK_PROFILE_TEST", path.c_str(), 1);
    {
        profile p("TAVIK_PROFILE_TEST", true);
        ASSERT_TRUE(p.loaded);
        p.section("s")["k"] = 42;
    }
    unsetenv("TAVIK_PROFILE_TEST");
    EXPECT_EQ(read(path), "[s]\nk=42\n");
}

TEST_F(ProfileTest, MissingFileIsCreatedAndLoadingMerges) {
    profile p(true);
    EXPECT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_TRUE(exists(path));
    EXPECT_FALSE(p.loadDirect((dir + "/no/such/dir/x.ini").c_str()));
    p.section("mem")["kept"] = 1;
    write("[MEM]\nother=2\n");
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_TRUE(p.section("mem").containsKey("kept"));
    EXPECT_TRUE(p.containsKey("other"));
}

TEST_F(ProfileTest, FailedSaveKeepsTheOldFileWhole) {
    write("[s]\nk=old\n");
    chmod(path.c_str(), 0600);
    profile p(true);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    p.section("s")["k"] = "new";
    std::string temporary = path + ".tmp";

    ASSERT_EQ(mkdir(temporary.c_str(), 0700), 0);  // the temporary file cannot be opened
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    EXPECT_EQ(rmdir(temporary.c_str()), 0);

    ASSERT_EQ(symlink("/dev/full", temporary.c_str()), 0);  // writing it fails at the flush
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    EXPECT_FALSE(exists(temporary));

    EXPECT_EQ(p.save(), 1);  // a whole new file replaces the old one and keeps its permissions
    EXPECT_EQ(read(path), "[s]\nk=new\n");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    ASSERT_EQ(remove(path.c_str()), 0);  // the rename over the settings file fails
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    std::ofstream(path + "/keep") << "x";
    EXPECT_EQ(p.save(), 0);
    EXPECT_FALSE(exists(temporary));
    EXPECT_EQ(read(path + "/keep"), "x");
}

TEST_F(ProfileTest, OverlongLineIsSkippedWholeAndBlocksSaving) {
    std::string longest(profile::lineLimit - 5, 'v');  // "full=" and these fill a line
    write("[s]\nk=" + std::string(5000, 'x') + "=bogus\nok=1\nfull=" + longest + "\n");
    profile p(true);
    EXPECT_FALSE(p.loadDirect(path.c_str()));
    p.section("s");
    EXPECT_EQ(p.getValueCount(), 2u);
    EXPECT_TRUE(longest == static_cast<char*>(p["full"]));
    std::string before = read(path);
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), before);
}

TEST_F(ProfileTest, CursorWithoutSectionOrValueReadsNothing) {
    profile p(true);
    p["x"] = 5;
    EXPECT_EQ(p.Name(), nullptr);
    EXPECT_EQ(static_cast<char*>(p), nullptr);
    p.section("s")["x"] = 5;
    EXPECT_TRUE(p.removeValue("X"));
    EXPECT_EQ(p.Name(), nullptr);
    p["y"] = 1;
    EXPECT_EQ(p.removeSection("S"), 1);
    EXPECT_EQ(p.Name(), nullptr);
    // A blank-padded name whose trimmed form exists replaces that section.
    p.section("t")["old"] = 1;
    p.appendSection(" t ");
    EXPECT_EQ(p.currentProfileSection, nullptr);
    EXPECT_EQ(p.section("t").getValueCount(), 0u);
}
