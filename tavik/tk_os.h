// Thin operating-system helpers: millisecond sleep, directory creation and the
// path separator. Safe on any thread.
#ifndef TAVIK_TK_OS_H_
#define TAVIK_TK_OS_H_

namespace tavik {

// Sleeps ms milliseconds: whole seconds first when ms is 1001 or more.
// Zero or negative values return at once.
void linux_sleep(int ms);

// mkdir(path) with the library's fixed mode 040077; returns mkdir's result.
int uni_mkdir(const char* path);

char pathtoken();             // '/'
const char* str_pathtoken();  // "/"

// Process-wide set-up and tear-down hooks; nothing to do on Linux.
void app_init();
void app_release();

}  // namespace tavik

#endif  // TAVIK_TK_OS_H_
