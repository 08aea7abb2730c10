// Keys of the registry: a tree of keys, each with named values, that outlives the program. On Windows it is
// the system's; elsewhere a file of the user's own with the same operations, types and numbers
// (docs/registry.md).
//
// The platform's names stand here under its own spelling, so that a program may include its headers as well,
// in either order.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>

struct HKEY__;  // NOLINT(bugprone-reserved-identifier): the platform's
/// An open key: an opaque value that nobody follows. Close each one once, by `reg_key_deleter::del`.
using HKEY = HKEY__*;

// NOLINTBEGIN(readability-identifier-naming, performance-no-int-to-ptr): the platform's names and values
#if !defined(HKEY_CURRENT_USER)
/// The roots, with their published values: open always, never closed. Only their low 32 bits count. Outside
/// Windows all of them are the user's own.
inline const HKEY HKEY_CLASSES_ROOT = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN});
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 1);
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 2);
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 3);
inline const HKEY HKEY_PERFORMANCE_DATA = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 4);
inline const HKEY HKEY_CURRENT_CONFIG = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 5);
inline const HKEY HKEY_DYN_DATA = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 6);
inline const HKEY HKEY_CURRENT_USER_LOCAL_SETTINGS = reinterpret_cast<HKEY>(std::intptr_t{INT32_MIN} + 7);
#endif

#if !defined(REG_SZ)
/// The types of values, with their published numbers. Any other number is kept as it is.
inline constexpr unsigned long REG_NONE = 0;
inline constexpr unsigned long REG_SZ = 1;         ///< text in UTF-16LE, with its final zero
inline constexpr unsigned long REG_EXPAND_SZ = 2;  ///< text that names variables of the environment
inline constexpr unsigned long REG_BINARY = 3;
inline constexpr unsigned long REG_DWORD = 4;  ///< 32 bits, the lowest byte first
inline constexpr unsigned long REG_DWORD_BIG_ENDIAN = 5;
inline constexpr unsigned long REG_LINK = 6;
inline constexpr unsigned long REG_MULTI_SZ = 7;  ///< texts, each with its final zero, and one more zero
inline constexpr unsigned long REG_RESOURCE_LIST = 8;
inline constexpr unsigned long REG_FULL_RESOURCE_DESCRIPTOR = 9;
inline constexpr unsigned long REG_RESOURCE_REQUIREMENTS_LIST = 10;
inline constexpr unsigned long REG_QWORD = 11;  ///< 64 bits, the lowest byte first
#endif
// NOLINTEND(readability-identifier-naming, performance-no-int-to-ptr)

namespace kro::tessel::registry {

/// How a `reg_key` lets its handle go.
class TESSEL_API reg_key_deleter {
public:
    /// Closes a handle. null, a root, or one that is closed: nothing happens.
    static void del(HKEY key) noexcept;
};

/// An open key, shared by all copies of the wrapper; the last copy closes it.
///
/// Names of values and keys: compared without case, kept as they were made; a zero ends them. The empty value
/// name is the key's default value. A path names keys one below the other, with "\" between them; "/" is a
/// letter like any other. A key's name has at most 255 units, a value's 16383.
///
/// Results: the raw operations return the platform's status, 0 for success; docs/registry.md lists the
/// numbers. The others return false. Nothing is thrown or traced, and the thread's last error stays as it is.
/// An empty wrapper fails with 6.
///
/// Threads: any thread, and several at a time on handles of one key, but copies of one wrapper may not be
/// made, assigned or destroyed on two threads at once: their count isn't atomic. What a write has returned 0
/// for is on the disk, and every thread and process sees it.
class TESSEL_API reg_key {
public:
    /// Opens the key at `path` below `parent` (an open key or a root); with `create` it is made where it is
    /// missing, with all that is missing above it. The wrapper is empty when that fails. An empty path opens
    /// `parent` again: the wrapper then owns a handle of its own.
    reg_key(HKEY parent, const wide_string& path, bool create) noexcept;
    /// Takes the handle over. Null makes an empty wrapper.
    reg_key(HKEY adopted) noexcept;  // NOLINT(google-explicit-constructor): open_subkey's result is a wrapper
    reg_key(const reg_key& other) noexcept;
    reg_key& operator=(const reg_key& other) noexcept;
    virtual ~reg_key();

    /// The value's type and data, each where its pointer isn't null.
    /// size:    in: the room in `data`, in bytes; out: the value's size. May be null only if `data` is.
    /// Returns: 0; 2 no such value; 234 too little room (type and size are filled in, the data isn't
    /// touched).
    ///          Text without a final zero gets one behind it where there is room; the size doesn't count it.
    long read_value(const wide_string& name, unsigned long* type, unsigned char* data,
                    unsigned long* size) const noexcept;

    /// Makes a value or replaces it, type and all; stored byte for byte, whatever the type.
    /// data, size: bytes; null only with a size of 0 (998 otherwise).
    long write_value(const wide_string& name, unsigned long type, const unsigned char* data,
                     unsigned long size) noexcept;

    /// The value at `index`, counted from 0; making and deleting values shifts the others.
    /// name:             set when the result is 0.
    /// type, data, size: as in read_value, each may be null.
    /// Returns: 0; 259 no value has that index; 234 the data has too little room, or the name has more than
    ///          255 units (type and size are filled in).
    long enum_value(unsigned long index, wide_string& name, unsigned long* type, unsigned char* data,
                    unsigned long* size) const noexcept;

    /// The value as text: REG_SZ up to its first zero, REG_BINARY as size / 2 units, zeros included. False
    /// for any other type, REG_EXPAND_SZ and REG_MULTI_SZ too; `out` is then left alone.
    bool read_value(const wide_string& name, wide_string& out) const noexcept;

    /// The value as a number. Its result is the wrong way round, which is kept since callers rely on it: a
    /// successful read sets `out` and returns FALSE, and so does the read of a missing value, which leaves
    /// `out` alone. True: there is a REG_DWORD that couldn't be read, since it has more than 4 bytes.
    bool read_value(const wide_string& name, unsigned long& out) const noexcept;

    /// Writes REG_SZ: the text and its final zero, (length + 1) * 2 bytes.
    bool write_value(const wide_string& name, const wide_string& value) noexcept;

    /// Writes REG_DWORD: the low 32 bits.
    bool write_value(const wide_string& name, unsigned long value) noexcept;

    bool delete_value(const wide_string& name) noexcept;

    /// Deletes the key at this path with its values; not one that has keys below it. "" is this key itself.
    bool delete_subkey(const wide_string& name) noexcept;

    /// Opens a key below this one, or makes it with `create`. The caller owns the handle: give it to a
    /// `reg_key` or to `reg_key_deleter::del`. Null: it failed.
    HKEY open_subkey(const wide_string& name, bool create) const noexcept;

    /// The name of the key at `index` below this one, in the order of their upper-cased names outside
    /// Windows.
    bool enum_subkey(unsigned long index, wide_string& name) const noexcept;

    /// The name of the value at `index`.
    bool enum_value(unsigned long index, wide_string& name) const noexcept;

    HKEY key = nullptr;     ///< null: empty. Lent: the wrapper closes it.
    long* count = nullptr;  ///< how many copies share the handle; null: empty
};

}  // namespace kro::tessel::registry
