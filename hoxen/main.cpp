// Entry point of the hoxen daemon.
#include <cstdio>

#include "hoxen/hoxen.h"

int main(int argc, char** argv) {
    // A descriptor left closed by whoever started us would go to the push socket, and the
    // daemon's own printing with it.
    open_closed_standard_descriptors();
    // Line by line even into a pipe or a file: the daemon ends by kill -9, which would
    // lose whatever a full buffer still held.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return hoxen_main(argc, argv);
}
