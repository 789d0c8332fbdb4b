// The settings profile: file format, cursor, name order, and replacing the file safely.
#include "tavik/tk_profile.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

using tavik::profile;
namespace fs = std::filesystem;

namespace {

// Every test works in a private directory, removed afterwards with all it holds.
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

// Every typed read of the current value, from long to double.
std::string typedReads(profile& p) {
    std::ostringstream out;
    out << static_cast<long>(p) << ' ' << static_cast<unsigned long>(p) << ' '
        << static_cast<int>(p) << ' ' << static_cast<unsigned int>(p) << ' '
        << static_cast<int>(static_cast<char>(p)) << ' ' << static_cast<float>(p) << ' '
        << static_cast<double>(p);
    return out.str();
}

}  // namespace

TEST_F(ProfileTest, LoadFollowsTheFileFormatAndSaveWritesNameOrderAndTwoDecimals) {
    write(
        "x=before any section\n[]\ne=empty\n[\n[Section] trailing\n-c=comment\n Key = 1 \n"
        " a = b=c \nline = a b \r\nno equals sign\n[open\nafter=open\n[MEM]\nother=2\nOTHER=3\n");
    profile p(true);
    p["x"] = 5;  // no section: nothing is made
    EXPECT_TRUE(static_cast<char*>(p) == nullptr && p[0ul].Name() == nullptr);
    EXPECT_FALSE(p.getValueCount() || p.containsKey("x") || p.removeValue("x"));
    p.section("mem")["kept"] = 1;  // loading merges with what is there
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    EXPECT_EQ(static_cast<int>(p.section("SECTION")["KEY"]), 1);
    EXPECT_STREQ(p.checkContainsKey("a", "after", "-c", "y", nullptr), "-c");
    p["pi"] = 3.14159;
    p["f"] = 2.5f;
    p["l"] = -7L;
    p["ul"] = ULONG_MAX - 2999999999UL;
    p["i"] = -3;
    p["ui"] = UINT_MAX;
    p["c"] = 'q';
    p["s"] = "text";
    const std::pair<const char*, const char*> reads[] = {
        {"l", "-7 18446744073709551609 -7 4294967289 45 -7 -7"},
        {"ul", "-3000000000 18446744070709551616 1294967296 1294967296 45 -3e+09 -3e+09"},
        {"pi", "3 3 3 3 51 3.14 3.14"},
        {"fresh", "0 0 0 0 0 0 0"}};
    for (auto& [name, text] : reads) EXPECT_EQ(text, typedReads(p[name])) << name;
    // Reads by index follow the name order, also of a value just appended.
    EXPECT_STREQ("after", p[1ul].Name());
    EXPECT_STREQ("ul", p[12ul].Name());
    EXPECT_TRUE(p.getValueCount() == 13 && p[13ul].Name() == nullptr);
    p.section("b");  // appended after the last lookup: saving sorts sections and values
    ASSERT_EQ(p.save(), 1);
    // "[" and "[open" are no headers; names and values are trimmed, and values lose their line
    // feed but keep a carriage return. Unsigned numbers are written as signed ones.
    EXPECT_EQ(
        read(path),
        "[]\ne=empty\n[b]\n[mem]\nkept=1\nother=3\n[Section]\na=b=c\nafter=open\nc=q\nf=2.50\n"
        "fresh=\ni=-3\nKey=1\nl=-7\nline=a b \r\npi=3.14\ns=text\nui=-1\nul=-3000000000\n");
    EXPECT_FALSE(fs::exists(path + ".tmp"));

    // Removing the value or section under the cursor, or replacing that section, clears it.
    EXPECT_TRUE(p.section("section")["pi"].removeValue("PI"));
    EXPECT_EQ("0 0 0 0 0 0 0", typedReads(p));
    EXPECT_TRUE(p.Name() == nullptr && static_cast<const char*>(p) == nullptr);
    EXPECT_EQ(p[12ul].Name(), nullptr);  // one value fewer
    p["c"];
    EXPECT_EQ(p.removeSection("section"), 1);
    EXPECT_TRUE(p.Name() == nullptr && p.findSection("section") == nullptr);
    p.section("mem");
    p.appendSection(" mem ");  // a blank-padded name whose trimmed form exists
    EXPECT_EQ(p.currentProfileSection, nullptr);
    EXPECT_EQ(p.section("mem").getValueCount(), 0u);
}

TEST_F(ProfileTest, OnlyALoadedChangeableProfileIsWrittenAlsoAtDestruction) {
    EXPECT_FALSE(profile(true).loadDirect((dir + "/no/such/dir/x.ini").c_str()));
    EXPECT_FALSE(profile(true).loadDirect(dir.c_str()));  // opens, but cannot be read
    {
        profile p(false);
        ASSERT_TRUE(p.loadDirect(path.c_str()));  // a missing file is created empty
        p.section("s")["k"] = 2;
        EXPECT_EQ(p.save(), 0);
    }
    EXPECT_TRUE(fs::exists(path) && read(path).empty());
    EXPECT_EQ(profile(true).save(), 0);  // not loaded

    // A line longer than lineLimit bytes is read in pieces, each a line of its own.
    std::string piece(profile::lineLimit - 2, 'x');  // "k=" and these fill the first piece
    write("[s]\nk=" + piece + "tail=bogus\nok=1\n");
    setenv("TAVIK_PROFILE_TEST", path.c_str(), 1);
    {
        profile p("TAVIK_PROFILE_TEST", true);
        EXPECT_TRUE(piece == static_cast<char*>(p.section("s")["k"]));
        p["n"] = 42;
    }
    unsetenv("TAVIK_PROFILE_TEST");
    EXPECT_TRUE(read(path) == "[s]\nk=" + piece + "\nn=42\nok=1\ntail=bogus\n");
}

TEST_F(ProfileTest, FailedSaveKeepsTheOldFileWhole) {
    write("[s]\nk=old\n");
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    profile p(true);
    ASSERT_TRUE(p.loadDirect(path.c_str()));
    p.section("s")["k"] = "new";
    std::string temporary = path + ".tmp";

    ASSERT_TRUE(fs::create_directory(temporary));  // the temporary file cannot be opened
    EXPECT_TRUE(p.save() == 0 && read(path) == "[s]\nk=old\n");
    ASSERT_TRUE(fs::remove(temporary));

    fs::create_symlink("/dev/full", temporary);  // writing it fails at the flush
    EXPECT_TRUE(p.save() == 0 && read(path) == "[s]\nk=old\n" && !fs::exists(temporary));

    EXPECT_EQ(p.save(), 1);  // a whole new file replaces the old one and keeps its permissions
    EXPECT_EQ(read(path), "[s]\nk=new\n");
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    ASSERT_TRUE(fs::remove(path) && fs::create_directory(path));  // the rename over it fails
    std::ofstream(path + "/keep") << "x";
    EXPECT_TRUE(p.save() == 0 && !fs::exists(temporary));
    EXPECT_EQ(read(path + "/keep"), "x");
}
