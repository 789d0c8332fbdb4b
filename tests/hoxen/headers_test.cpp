// Every public header of the three layers can be included together, in one
// translation unit, and names the types other programs link against.
#include <gtest/gtest.h>

#include <type_traits>

#include "PushClient/BasePushClient.h"
#include "PushClient/PushClient.h"
#include "hoxen/hoxen.h"
#include "tavik/tavik.h"

TEST(HeadersTest, UmbrellaHeadersDeclareThePublicTypes) {
    static_assert(std::is_base_of<PushClient, Push>::value, "the daemon's Push is a PushClient");
    static_assert(std::is_base_of<BasePushClient, Client>::value, "Client bridges a session");
    static_assert(std::is_same<tavik::socks, tavik::_tempSock<tavik::nullType>>::value, "socks");
    EXPECT_EQ(-1, tavik::sErrDisconnected);
    EXPECT_EQ(-5, tavik::sErrTimeout);
    tavik::string s("a,b");
    tavik::strArr* parts = s.split(",");
    EXPECT_EQ(2u, parts->length);
    delete parts;
}
