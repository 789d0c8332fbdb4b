// A tiny read-only FUSE file system that stands in for the quillo storage daemon's
// mount in the end-to-end tests, the benchmarks and tools/demo: one directory holding one
// file, "status". Mounted with -o fsname=quillo,subtype=quillo it is listed by mount as
// "quillo on <dir> type fuse.quillo (...)". Run it in the foreground (-f); it exits by
// itself once its mount point is unmounted.
#define FUSE_USE_VERSION 31
#include <fuse.h>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace {

const char kStatusPath[] = "/status";
const char kStatusText[] = "quillo is running\n";

int quilloGetattr(const char* path, struct stat* st, fuse_file_info*) {
    memset(st, 0, sizeof(*st));
    if (strcmp(path, "/") == 0) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return 0;
    }
    if (strcmp(path, kStatusPath) == 0) {
        st->st_mode = S_IFREG | 0444;
        st->st_nlink = 1;
        st->st_size = sizeof(kStatusText) - 1;
        return 0;
    }
    return -ENOENT;
}

int quilloReaddir(const char* path, void* buf, fuse_fill_dir_t fill, off_t, fuse_file_info*,
                  fuse_readdir_flags) {
    if (strcmp(path, "/") != 0)
        return -ENOENT;
    fill(buf, ".", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buf, "..", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buf, kStatusPath + 1, nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    return 0;
}

int quilloOpen(const char* path, fuse_file_info* fi) {
    if (strcmp(path, kStatusPath) != 0)
        return -ENOENT;
    if ((fi->flags & O_ACCMODE) != O_RDONLY)
        return -EACCES;
    return 0;
}

int quilloRead(const char* path, char* buf, size_t size, off_t offset, fuse_file_info*) {
    if (strcmp(path, kStatusPath) != 0)
        return -ENOENT;
    const off_t length = sizeof(kStatusText) - 1;
    if (offset >= length)
        return 0;
    if (static_cast<off_t>(size) > length - offset)
        size = length - offset;
    memcpy(buf, kStatusText + offset, size);
    return static_cast<int>(size);
}

}  // namespace

int main(int argc, char* argv[]) {
    fuse_operations ops{};
    ops.getattr = quilloGetattr;
    ops.readdir = quilloReaddir;
    ops.open = quilloOpen;
    ops.read = quilloRead;
    return fuse_main(argc, argv, &ops, nullptr);
}
