#include "registry_failure.h"

#include "os/registry.h"

#include <sqlite3.h>

#include <cerrno>

namespace kro::tessel::os {

registry_failure failure_of(int sqlite_result) noexcept {
    switch (sqlite_result & 0xFF) {  // the rest says more than there are numbers for
        case SQLITE_BUSY:            // another process went on for longer than the time-out
        case SQLITE_LOCKED:
            return {k_registry_busy};
        case SQLITE_NOMEM:
        case SQLITE_TOOBIG:  // a value beyond SQLite's limit
            return {k_registry_out_of_memory};
        case SQLITE_FULL:
            return {k_registry_disk_full, true};
        case SQLITE_READONLY:  // the file or its folder may not be written
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return {k_registry_access_denied, true};
        case SQLITE_CANTOPEN:
            return {k_registry_cant_open, true};
        case SQLITE_CORRUPT:  // damaged pages
            return {k_registry_corrupt, true};
        case SQLITE_NOTADB:  // another kind of file
        case SQLITE_ERROR:   // another program's tables, put in the place of ours while it was open
        case SQLITE_SCHEMA:
            return {k_registry_not_registry_file, true};
        default:  // SQLITE_IOERR, SQLITE_PROTOCOL and what must not happen
            return {k_registry_io_failed, true};
    }
}

registry_failure failure_of_file(int error) noexcept {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return {k_registry_path_not_found};
        case EACCES:
        case EPERM:
        case EROFS:
            return {k_registry_access_denied};
        case ENOSPC:
        case EDQUOT:
            return {k_registry_disk_full};
        case ENOMEM:
            return {k_registry_out_of_memory};
        case EIO:
            return {k_registry_io_failed};
        default:
            return {k_registry_cant_open};
    }
}

}  // namespace kro::tessel::os
