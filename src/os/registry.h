// The registry: keys in a tree, with named values.
#pragma once

#include "tessel/base/types.h"
#include "tessel/platform/registry.h"

#include <cstdint>

namespace kro::tessel::os {

/// What calls return: the platform's published numbers.
enum registry_status : std::int32_t {
    k_registry_ok = 0,
    k_registry_not_found = 2,       ///< no such key or value
    k_registry_path_not_found = 3,  ///< the folder of the store isn't there
    k_registry_access_denied =
        5,  ///< a key with keys below it can't be deleted; the store may not be written
    k_registry_invalid_handle = 6,     ///< null, closed, or never was one
    k_registry_out_of_memory = 8,      ///< no memory; more data than the store takes
    k_registry_invalid_argument = 87,  ///< a pointer that may not be null; a name that is too long
    k_registry_disk_full = 112,
    k_registry_bad_path = 161,  ///< a path that begins with a backslash
    k_registry_busy = 170,      ///< another process has held the store for longer than anybody waits
    k_registry_more_data = 234,
    k_registry_no_more_items = 259,
    k_registry_no_access = 998,           ///< null data with a size
    k_registry_bad_key = 1010,            ///< the key to make has no name
    k_registry_cant_open = 1011,          ///< the store can't be opened
    k_registry_corrupt = 1015,            ///< the store is damaged
    k_registry_io_failed = 1016,          ///< reading or writing the store failed
    k_registry_not_registry_file = 1017,  ///< the store's file is something else
    k_registry_key_deleted = 1018,        ///< the handle's key was deleted, by whomever
    k_registry_unknown_revision = 1305,   ///< a newer version made the store
};

inline constexpr std::size_t k_longest_key_name = 255;      ///< in units, of one component of a path
inline constexpr std::size_t k_longest_value_name = 16383;  ///< in units

/// The calls of the registry, with their results. They return the status and leave the last error alone. Any
/// thread; what returned 0 is there for every other thread and process, and on the disk.
///
/// Keys and paths: zero-terminated; null is "". "\" stands between the keys of a path; several in a row, or
/// at the end, count as one, at the beginning 161. Names match without regard to case (each unit's simple
/// upper case) and stay as they were made. Value names: null or "" is the default value.
///
/// Every call on a handle answers 6 when it is none, and 1018 when its key has been deleted since; a root's
/// handle counts by its low 32 bits.
class registry_service {
public:
    virtual ~registry_service() = default;

    /// RegOpenKeyW, but a new handle for "" too (except of a root, which stays itself): its owner closes it.
    /// Null handle with an empty path: 0 with a null handle. result: null when it fails; may not be null
    /// (87).
    virtual std::int32_t open_key(HKEY parent, const wchar* path, HKEY* result) = 0;

    /// RegCreateKeyW: opens, or makes what is missing of the path. 1010 for a null path.
    virtual std::int32_t create_key(HKEY parent, const wchar* path, HKEY* result) = 0;

    /// RegCloseKey. Of a root: 0, and nothing happens.
    virtual std::int32_t close_key(HKEY key) = 0;

    /// RegQueryValueExW.
    /// type, data, size: each may be null, size only if data is. size: the room on entry, the value's bytes
    /// on
    ///          exit. Without data: 0 and the size. Too little room: 234, type and size set, data untouched.
    ///          Missing: 2, everything untouched, but the size 0 where there was no data pointer.
    ///          A text type that lacks the final zero gets it behind the data if there is room, uncounted.
    virtual std::int32_t query_value(HKEY key, const wchar* name, std::uint32_t* type, unsigned char* data,
                                     std::uint32_t* size) = 0;

    /// RegSetValueExW. Replaces type and data; the bytes are stored as they are, of whatever type.
    /// data: null with size 0: an empty value; null with another size: 998.
    virtual std::int32_t set_value(HKEY key, const wchar* name, std::uint32_t type, const unsigned char* data,
                                   std::uint32_t size) = 0;

    /// RegEnumValueW: the value at `index`; 259 behind the last one. No order is promised, but it stays while
    /// nothing is made or deleted.
    /// name, name_units: not null (87). The room, with that of the final zero, on entry; the units without it
    /// on
    ///          exit. Too little: 234, only type and size are filled in.
    /// type, data, size: as in query_value; too little room for the data: 234 with name, type and size.
    virtual std::int32_t enum_value(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units,
                                    std::uint32_t* type, unsigned char* data, std::uint32_t* size) = 0;

    /// RegEnumKeyExW: the key at `index`, in the order of the upper-cased names; name and result as above.
    virtual std::int32_t enum_key(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units) = 0;

    /// RegDeleteValueW. 2: it isn't there.
    virtual std::int32_t delete_value(HKEY key, const wchar* name) = 0;

    /// RegDeleteKeyW: the key at the path, with its values; "" is the key itself. 2: it isn't there; 5: there
    /// are keys below it; 87: null.
    virtual std::int32_t delete_key(HKEY key, const wchar* path) = 0;
};

registry_service& registry_keys();  ///< the running system's; lives until unload

}  // namespace kro::tessel::os
