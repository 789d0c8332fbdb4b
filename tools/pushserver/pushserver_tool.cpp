// hoxen-pushserver: a push server for operators and the demo. Listens, prints what clients
// send (through ClientWatcher) and runs a script of steps from the command line or standard
// input against the newest client. usageText() in tool_script.cpp is its manual.
#include <cstdio>
#include <iostream>
#include <thread>

#include "tools/pushserver/client_watcher.h"
#include "tools/pushserver/push_server.h"
#include "tools/pushserver/tool_script.h"

namespace pushserver {
namespace {

using std::chrono::milliseconds;

class ScriptRunner {
public:
    ScriptRunner(PushServer& server, ClientWatcher& watcher, int limitSeconds)
        : server(server), watcher(watcher), limit(limitSeconds * 1000) {}

    // Runs one step; false when it failed (the reason is printed).
    bool run(const Step& step) {
        if (step.kind == Step::sleep) {
            std::this_thread::sleep_for(milliseconds(atoi(step.arg.c_str())));
            return true;
        }
        if (step.kind == Step::waitClient) {
            return waitedFor(watcher.waitForClientAfter(watcher.newestClient(), limit));
        }
        long client = watcher.newestClient();
        if (client < 0 && !waitedFor(client = watcher.waitForClientAfter(-1, limit))) {
            return false;
        }
        if (isSending(step)) {
            std::string body = stepBody(step);
            bool sent = server.sendFrame(client, body);
            watcher.say(client, (sent ? "sent " : "could not send ") + frame(body));
            return sent;
        }
        if (step.kind == Step::waitClose) {
            bool closed = server.waitForPeerClose(
                client, limit.count() ? limit : std::chrono::hours(24 * 365));
            if (!closed) {
                watcher.say(client, "still open after the wait limit");
            }
            return closed;
        }
        bool shut = step.kind == Step::close ? server.close(client) : server.reset(client);
        watcher.say(client,
                    shut ? (step.kind == Step::close ? "closed" : "reset") : "already closed");
        return shut;
    }

private:
    bool waitedFor(long client) {
        if (client < 0) {
            watcher.say(-1, "no client handshake within the wait limit");
        }
        return client >= 0;
    }

    PushServer& server;
    ClientWatcher& watcher;
    milliseconds limit;
};

// Steps typed on standard input, until quit or end of input. A failed step is reported and
// the server carries on.
void runInput(ScriptRunner& runner, ClientWatcher& watcher) {
    std::string line, error;
    while (std::getline(std::cin, line)) {
        Step step;
        if (!parseLine(line, &step, &error)) {
            if (!error.empty()) {
                watcher.say(-1, error);
            }
        } else if (step.kind == Step::quit) {
            return;
        } else if (step.kind == Step::help) {
            fputs(usageText(), stdout);
            fflush(stdout);
        } else {
            runner.run(step);
        }
    }
}

int toolMain(int argc, char** argv) {
    ToolOptions options;
    std::string error;
    if (!parseArguments(argc, argv, &options, &error)) {
        fprintf(stderr, "hoxen-pushserver: %s\n%s", error.c_str(), usageText());
        return 2;
    }
    if (options.help) {
        fputs(usageText(), stdout);
        return 0;
    }
    PushServer server;
    if (!server.listen(options.port, options.address.c_str())) {
        fprintf(stderr, "hoxen-pushserver: cannot listen on %s:%d\n", options.address.c_str(),
                options.port);
        return 1;
    }
    ClientWatcher watcher(server);
    watcher.say(-1, "listening on " + options.address + ":" + std::to_string(server.port()));
    ScriptRunner runner(server, watcher, options.limitSeconds);
    if (options.script.empty()) {
        runInput(runner, watcher);
        return 0;
    }
    for (const Step& step : options.script) {
        if (!runner.run(step)) {
            return 1;
        }
    }
    return 0;
}

}  // namespace
}  // namespace pushserver

int main(int argc, char** argv) {
    return pushserver::toolMain(argc, argv);
}
