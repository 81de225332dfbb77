#include "client_mgr/dispatch/table_dump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/tables/client_tbl_dump.h"

namespace {

constexpr char dump_file[] = "/tmp/clientmgr_cli";

// The dump has keys, so the file must be a regular file of our own that nobody else can read, and no link is followed.
// Returns null when it cannot be opened so.
FILE *open_dump_file() {
    const int fd = open(dump_file, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        return nullptr;
    }
    struct stat st;
    const bool ours = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() && st.st_nlink == 1;
    if (ours && fchmod(fd, S_IRUSR | S_IWUSR) == 0 && ftruncate(fd, 0) == 0) {
        if (FILE *f = fdopen(fd, "w")) {
            return f;
        }
    }
    close(fd);
    return nullptr;
}

}  // namespace

void dump_client_table() {
    FILE *f = open_dump_file();
    if (f == nullptr) {
        CM_LOG(LOG_ERROR, "Unable to open %s", dump_file);
        return;
    }
    // Not the stream's own buffer, in which the keys would outlive the stream.
    char buffer[4096];
    const wipe_guard guard(buffer);
    setvbuf(f, buffer, _IOFBF, sizeof buffer);
    client_tbl_dump(f);
    // fclose() reports only the final flush.
    const bool failed = ferror(f) != 0;
    if (fclose(f) != 0 || failed) {
        CM_LOG(LOG_ERROR, "Unable to write %s", dump_file);
    }
}
