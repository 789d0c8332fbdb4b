#include "tools/pushserver/tool_script.h"

#include <cstdlib>

namespace pushserver {

namespace {

struct StepName {
    const char* name;
    Step::Kind kind;
    bool takesArgument;
};

const StepName kSteps[] = {
    {"wait-client", Step::waitClient, false},
    {"auth", Step::auth, true},
    {"msg", Step::msg, true},
    {"frame", Step::frameBody, true},
    {"sleep", Step::sleep, true},
    {"close", Step::close, false},
    {"reset", Step::reset, false},
    {"wait-close", Step::waitClose, false},
    {"quit", Step::quit, false},
    {"help", Step::help, false},
};

const StepName* findStep(const std::string& name) {
    for (const StepName& step : kSteps) {
        if (name == step.name) {
            return &step;
        }
    }
    return nullptr;
}

bool parseNumber(const std::string& text, int low, int high, int* out) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    int value = atoi(text.c_str());
    if (value < low || value > high) {
        return false;
    }
    *out = value;
    return true;
}

// Checks a step's argument; sleep takes milliseconds.
bool checkStep(const Step& step, std::string* error) {
    int ignored;
    if (step.kind == Step::sleep && !parseNumber(step.arg, 0, 3600000, &ignored)) {
        *error = "sleep takes milliseconds, not '" + step.arg + "'";
        return false;
    }
    return true;
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, ToolOptions* out, std::string* error) {
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        bool hasValue = i + 1 < argc;
        if (word == "-h" || word == "--help") {
            out->help = true;
        } else if (word == "--address" || word == "--port" || word == "--limit") {
            if (!hasValue) {
                *error = word + " needs a value";
                return false;
            }
            std::string value = argv[++i];
            if (word == "--address") {
                out->address = value;
            } else if (word == "--port" ? !parseNumber(value, 0, 65535, &out->port)
                                        : !parseNumber(value, 0, 86400, &out->limitSeconds)) {
                *error = "bad number for " + word + ": '" + value + "'";
                return false;
            }
        } else {
            const StepName* step =
                word.compare(0, 2, "--") == 0 ? findStep(word.substr(2)) : nullptr;
            if (step == nullptr || step->kind == Step::help) {
                *error = "unknown argument '" + word + "'";
                return false;
            }
            if (step->takesArgument && !hasValue) {
                *error = word + " needs a value";
                return false;
            }
            Step parsed{step->kind, step->takesArgument ? argv[++i] : ""};
            if (!checkStep(parsed, error)) {
                return false;
            }
            out->script.push_back(parsed);
        }
    }
    return true;
}

bool parseLine(const std::string& line, Step* out, std::string* error) {
    error->clear();
    size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos || line[start] == '#') {
        return false;
    }
    size_t end = line.find_last_not_of(" \t\r") + 1;
    size_t nameEnd = line.find_first_of(" \t", start);
    if (nameEnd == std::string::npos || nameEnd > end) {
        nameEnd = end;
    }
    std::string name = line.substr(start, nameEnd - start);
    const StepName* step = findStep(name);
    if (step == nullptr) {
        *error = "unknown command '" + name + "' (help lists the commands)";
        return false;
    }
    // The argument is the rest of the line after one blank, so texts keep inner blanks.
    std::string arg = nameEnd < end ? line.substr(nameEnd + 1, end - nameEnd - 1) : "";
    if (step->takesArgument == arg.empty() && step->kind != Step::msg) {
        *error = name + (step->takesArgument ? " needs a value" : " takes no value");
        return false;
    }
    Step parsed{step->kind, arg};
    if (!checkStep(parsed, error)) {
        return false;
    }
    *out = parsed;
    return true;
}

std::string stepBody(const Step& step) {
    switch (step.kind) {
        case Step::auth:
            return "#2:" + step.arg;
        case Step::msg:
            return "#1:" + step.arg;
        default:
            return step.arg;
    }
}

bool isSending(const Step& step) {
    return step.kind == Step::auth || step.kind == Step::msg || step.kind == Step::frameBody;
}

const char* usageText() {
    return "usage: hoxen-pushserver [--address A.B.C.D] [--port N] [--limit SECONDS] [STEP...]\n"
           "\n"
           "A push server for trying a hoxen box: listens on the address (127.0.0.1) and TCP\n"
           "port (10099; 0 picks a free one) and prints every client that connects, with its\n"
           "handshake (domain, identifier, user id, login parameter) as it arrives. It sends\n"
           "frames as hoxen reads them: a \"%04d\" body length, then the body, whose first\n"
           "character is a marker the client skips.\n"
           "\n"
           "The STEPs given on the command line run in order, then the server ends. Without\n"
           "STEPs it reads them from standard input, one a line, the same words without the\n"
           "dashes (\"msg integrity hello\"), until quit or end of input.\n"
           "\n"
           "Steps send to the newest client whose handshake has arrived, first waiting for one:\n"
           "  --auth RESULT:TOKEN  authentication result, body \"#2:RESULT:TOKEN\"; hoxen prints\n"
           "                       \"Auth: passed, ...\" when RESULT is true (any case)\n"
           "  --msg TEXT           message, body \"#1:TEXT\"; hoxen starts its integrity checker\n"
           "  --frame BODY         the body exactly as given (other task codes, broken bodies)\n"
           "  --close              close the client's connection (hoxen connects again)\n"
           "  --reset              abort the client's connection with a reset\n"
           "  --wait-client        wait for the handshake of a client newer than the newest\n"
           "  --wait-close         wait until the newest client closes its connection\n"
           "  --sleep MS           pause MS milliseconds\n"
           "  quit, help           (standard input only) end the server; list the steps\n"
           "\n"
           "Waits end with a failure after --limit seconds (0, the default: never).\n"
           "Exit status: 0 when every step succeeded, 1 when one failed, 2 on a usage error.\n"
           "\n"
           "example: hoxen-pushserver --port 10099 --auth true:TOKEN --sleep 500 \\\n"
           "             --msg \"integrity hello\" --close\n";
}

}  // namespace pushserver
