#include "tavik/tk_os.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tavik {

void linux_sleep(int ms) {
    if (ms <= 0) {
        return;
    }
    if (ms >= 1001) {
        sleep(ms / 1000);
        usleep((ms % 1000) * 1000);
    } else {
        usleep(ms * 1000);
    }
}

int uni_mkdir(const char* path) {
    return mkdir(path, 040077);
}

char pathtoken() {
    return '/';
}

const char* str_pathtoken() {
    return "/";
}

void app_init() {}

void app_release() {}

}  // namespace tavik
