// The real daemon against frames no sane server sends: headers that are not numbers,
// negative and zero lengths, 9999-byte bodies holding NUL and high bytes, a frame dripped a
// byte at a time. It keeps its one connection, prints every complete message once and starts
// the checker once for it, and holds no more than it held after the first round.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/hostile_run.h"

using namespace hoxen_test;
using std::chrono::milliseconds;

namespace {

// 9999-byte body: "#1:" + lead, then bytes above 0x7F, a NUL and more bytes after it.
std::string big_body(const std::string& lead, bool withNul) {
    std::string body = "#1:" + lead;
    for (int i = 0; body.size() < 9999; ++i) body += static_cast<char>(0x80 + i % 128);
    if (withNul)
        body[5000] = '\0';
    return body;
}

}  // namespace

TEST(HostileFrames, BrokenHeadersAndOddBodiesNeitherLoseNorRepeatMessages) {
    start_scenario(true);
    HostileRun run("/tmp/hostile-frames/mnt");
    Footprint settled;
    for (int round = 0; round < 3; ++round) {
        const std::string r = " r" + std::to_string(round);
        // Lengths that announce no body: the next four bytes are the next header.
        const std::vector<std::string> noBody = {"abcd", "-005", "0000",
                                                 "-000", " -1 ", std::string("\xff\0\x80\x7f", 4)};
        for (size_t i = 0; i < noBody.size(); ++i) {
            ASSERT_TRUE(run.server.sendRaw(0, noBody[i]));
            ASSERT_TRUE(run.message(0, "after header " + std::to_string(i) + r));
        }
        // Full-length bodies, enough of them that a body kept per frame would show in memory:
        // printed up to a NUL, high bytes passed as they are; no message, nothing started.
        for (int i = 0; i < 8; ++i) {
            const std::string id = r + "." + std::to_string(i);
            const std::string nul = big_body("nul" + id, true), high = big_body("high" + id, false);
            ASSERT_TRUE(run.message(0, nul.substr(3), nul.substr(3, 5000 - 3)));
            ASSERT_TRUE(run.message(0, high.substr(3)));
            ASSERT_TRUE(run.server.sendFrame(0, std::string(9999, '\0')));
            ASSERT_TRUE(run.server.sendFrame(0, "#7:" + high.substr(3)));
            ASSERT_TRUE(run.server.sendFrame(0, std::string(9999, ':')));
        }
        // A frame dripped a byte every 100 ms is assembled and dispatched once.
        ASSERT_TRUE(run.server.sendFrameBytewise(0, "#1:drip" + r, milliseconds(100)));
        run.expect_printed("drip" + r);
        run.expect_all_delivered(10);
        if (round == 0)
            settled = run.footprint();
    }
    EXPECT_EQ(run.server.connectionCount(), 1u);
    EXPECT_FALSE(run.server.peerClosed(0));
    run.expect_footprint_kept(settled);
}
