// Uses the installed tavik the way an outside program would: makes a random identifier
// (libuuid) on a library thread (pthreads) and prints it. Exit status 0 when it has the
// 32 hexadecimal digits it should have.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tavik/tk_common.h"
#include "tavik/tk_thread.h"

class identifierMaker : public tavik::thread<false> {
public:
    void run() override { snprintf(id, sizeof(id), "%s", tavik::uuid::randomUUID()); }
    char id[64] = "";
};

int main() {
    identifierMaker maker;
    if (maker.start(nullptr) == 0)
        return 1;
    for (int i = 0; i < 500 && maker.status != tavik::_finished; i++) usleep(10000);
    printf("tavik consumer: %s\n", maker.id);
    bool hex = strlen(maker.id) == 32 && strspn(maker.id, "0123456789abcdef") == 32;
    return maker.status == tavik::_finished && hex ? 0 : 1;
}
