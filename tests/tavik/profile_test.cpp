#include "tavik/tk_profile.h"

#include <fcntl.h>
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
    std::string dir;
    std::string path;

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

TEST_F(ProfileTest, NamesIgnoreCaseAndValuesAreTrimmed) {
    write("[Section]\nKey = 1 \nline = a b \r\n");
    profile p(false);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(static_cast<int>(p.section("SECTION")["KEY"]), 1);
    EXPECT_STREQ(p.Name(), "Key");
    // A line feed goes, a carriage return stays.
    EXPECT_STREQ(static_cast<const char*>(p["LINE"]), "a b \r");
    EXPECT_EQ(p.getValueCount(), 2u);
    EXPECT_EQ(p.sectionTable.count, 1u);
}

TEST_F(ProfileTest, LinesFollowTheFileFormat) {
    write(
        "x=before any section\n[]\ne=empty\n[\n[A] trailing\n-c=comment\n a = b=c \n"
        "no equals sign\n[open\nafter=open\n");
    profile p(false);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(p.sectionTable.count, 2u);
    EXPECT_STREQ(static_cast<char*>(p.section("")["e"]), "empty");
    p.section("A");
    EXPECT_EQ(p.getValueCount(), 2u);
    EXPECT_STREQ(static_cast<char*>(p["a"]), "b=c");
    EXPECT_STREQ(static_cast<char*>(p["after"]), "open");
    EXPECT_FALSE(p.containsKey("-c"));
    EXPECT_STREQ(p.checkContainsKey("a", "after", "x", "y", nullptr), "x");
    EXPECT_EQ(p.checkContainsKey("A", "AFTER", nullptr), nullptr);
}

TEST_F(ProfileTest, SaveWritesNameOrderAndTypedValues) {
    write("[B]\nz=1\n[a]\nY=2\nx=3\n");
    profile p(true);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    p.section("a");
    p["pi"] = 3.14159;
    p["f"] = 2.5f;
    p["l"] = -7L;
    p["u"] = static_cast<unsigned long>(-1);
    p["c"] = 'q';
    p["s"] = "text";
    EXPECT_DOUBLE_EQ(static_cast<double>(p["pi"]), 3.14);
    EXPECT_EQ(static_cast<long>(p["l"]), -7);
    EXPECT_EQ(static_cast<char>(p["c"]), 'q');
    ASSERT_EQ(p.save(), 1);
    EXPECT_EQ(read(path), "[a]\nc=q\nf=2.50\nl=-7\npi=3.14\ns=text\nu=-1\nx=3\nY=2\n[B]\nz=1\n");
    EXPECT_FALSE(exists(path + ".tmp"));

    p[0ul];
    EXPECT_STREQ(p.Name(), "c");
    p[8ul];
    EXPECT_EQ(p.Name(), nullptr);
}

TEST_F(ProfileTest, ProfileThatMayNotChangeNeverWrites) {
    write("[s]\nk=1\n");
    {
        profile p(false);
        ASSERT_TRUE(p.loadDirect(path.c_str()));
        p.section("s")["k"] = 2;
        p.section("new")["v"] = 3;
        EXPECT_EQ(p.save(), 0);
    }
    EXPECT_EQ(read(path), "[s]\nk=1\n");
    EXPECT_FALSE(exists(path + ".tmp"));

    profile unloaded(true);
    EXPECT_EQ(unloaded.save(), 0);
}

TEST_F(ProfileTest, DestructionSavesAChangeableProfile) {
    setenv("TAVIK_PROFILE_TEST", path.c_str(), 1);
    {
        profile p("TAVIK_PROFILE_TEST", true);
        ASSERT_TRUE(p.loaded);
        p.section("s")["k"] = 42;
    }
    EXPECT_EQ(read(path), "[s]\nk=42\n");
    unsetenv("TAVIK_PROFILE_TEST");
    profile unset("TAVIK_PROFILE_TEST", true);
    EXPECT_FALSE(unset.loaded);
}

TEST_F(ProfileTest, MissingFileIsCreatedEmptyAndLoadsMerging) {
    profile p(true);
    EXPECT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_TRUE(exists(path));
    EXPECT_EQ(p.sectionTable.count, 0u);
    EXPECT_FALSE(p.loadDirect((dir + "/no/such/dir/x.ini").c_str()));
    EXPECT_FALSE(p.loadDirect(""));

    p.section("mem")["kept"] = 1;
    write("[file]\nk=v\n[MEM]\nother=2\n");
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(p.sectionTable.count, 2u);
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

    // The temporary file cannot be opened.
    ASSERT_EQ(mkdir(temporary.c_str(), 0700), 0);
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    EXPECT_EQ(rmdir(temporary.c_str()), 0);

    // Writing the temporary file fails when it is flushed.
    ASSERT_EQ(symlink("/dev/full", temporary.c_str()), 0);
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), "[s]\nk=old\n");
    EXPECT_FALSE(exists(temporary));

    // A whole new file replaces the old one and keeps its permissions.
    EXPECT_EQ(p.save(), 1);
    EXPECT_EQ(read(path), "[s]\nk=new\n");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // The rename over the settings file fails.
    ASSERT_EQ(remove(path.c_str()), 0);
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    write("");
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
    EXPECT_EQ(static_cast<int>(p["ok"]), 1);
    EXPECT_TRUE(longest == static_cast<char*>(p["full"]));
    std::string before = read(path);
    EXPECT_EQ(p.save(), 0);
    EXPECT_EQ(read(path), before);
}

TEST_F(ProfileTest, CursorWithoutSectionOrValueReadsNothing) {
    profile p(true);
    p["x"] = 5;
    p[0ul];
    EXPECT_EQ(p.Name(), nullptr);
    EXPECT_EQ(static_cast<int>(p), 0);
    EXPECT_EQ(static_cast<double>(p), 0.0);
    EXPECT_EQ(static_cast<char*>(p), nullptr);
    EXPECT_EQ(p.getValueCount(), 0u);
    EXPECT_FALSE(p.isExistValue("x"));
    EXPECT_FALSE(p.removeValue("x"));

    p.section("s")["x"] = 5;
    EXPECT_STREQ(p.Name(), "x");
    EXPECT_TRUE(p.removeValue("X"));
    EXPECT_EQ(p.Name(), nullptr);
    p["y"] = 1;
    EXPECT_EQ(p.removeSection("S"), 1);
    EXPECT_EQ(p.currentProfileSection, nullptr);
    EXPECT_EQ(p.Name(), nullptr);
    EXPECT_EQ(p.findSection("s"), nullptr);

    // A blank-padded name whose trimmed form exists replaces that section.
    p.section("t")["old"] = 1;
    p.appendSection(" t ");
    EXPECT_EQ(p.currentProfileSection, nullptr);
    EXPECT_EQ(p.section("t").getValueCount(), 0u);
}
