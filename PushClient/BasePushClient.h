// The push client's session side: the session BasePushClient, its bridge Client, the records
// PushUser (outbound identity) and PushMessage (inbound message), and the text filters
// ansi2utf and utf2ansi. Applications normally use the facade in PushClient/PushClient.h.
#pragma once

#include "PushClient/Client.h"
#include "PushClient/PushCharset.h"
#include "PushClient/PushMessage.h"
#include "PushClient/PushSession.h"
#include "PushClient/PushUser.h"
