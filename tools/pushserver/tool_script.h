// The command language of hoxen-pushserver: options and a script of steps, read from the
// command line ("--msg TEXT") or from standard input, one step per line ("msg TEXT").
// Plain values; nothing here touches the network.
#pragma once

#include <string>
#include <vector>

namespace pushserver {

struct Step {
    enum Kind { waitClient, auth, msg, frameBody, sleep, close, reset, waitClose, quit, help };
    Kind kind;
    std::string arg;  // auth: "RESULT:TOKEN"; msg: text; frameBody: body; sleep: milliseconds
};

struct ToolOptions {
    std::string address = "127.0.0.1";
    int port = 10099;
    int limitSeconds = 0;  // longest wait of wait-client and wait-close; 0 waits for ever
    bool help = false;
    std::vector<Step> script;  // from the command line; empty: read standard input
};

// Parses argv; false with a message in *error on a bad or unknown argument.
bool parseArguments(int argc, const char* const* argv, ToolOptions* out, std::string* error);

// Parses one input line ("msg integrity hello"). A blank or "#" comment line yields false with
// an empty *error; a bad line yields false with a message.
bool parseLine(const std::string& line, Step* out, std::string* error);

// The frame body a sending step puts on the wire: "#2:" + arg for auth, "#1:" + arg for msg
// (the client skips the leading marker), arg itself for frameBody.
std::string stepBody(const Step& step);

bool isSending(const Step& step);

// The --help text.
const char* usageText();

}  // namespace pushserver
