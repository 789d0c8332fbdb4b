// Entry point of the hoxen daemon.
#include <cstdio>

#include "hoxen/hoxen.h"

int main(int argc, char** argv) {
    // Line by line even into a pipe or a file: the daemon ends by kill -9, which would
    // lose whatever a full buffer still held.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return hoxen_main(argc, argv);
}
