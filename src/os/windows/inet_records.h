// All records of the HTTP service, by handle and by the context that the system was given.
#pragma once

#include "os/windows/inet_record.h"

#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace kro::tessel::os {

/// Threads: all members may be called from any.
class inet_records {
public:
    using pointer = std::shared_ptr<inet_record>;

    /// Makes the record of a handle that is about to be made. async: of a session, else the parent's.
    pointer announce(inet_kind kind, pointer parent, std::uintptr_t context, bool async = true);
    /// Its handle exists now.
    void open(const pointer& record, HINTERNET handle);
    /// The record that the system means by a context; null when it has been forgotten.
    pointer announced(std::uintptr_t id);
    /// The system's last word about it has been said.
    void forget(std::uintptr_t id);

    /// The record of an open handle; null for anything else.
    pointer find(inet_handle handle);
    /// The same, if it is of this kind.
    pointer find(inet_handle handle, inet_kind kind);
    /// Takes a handle and all below it off: children before parents, the youngest first.
    std::vector<pointer> take(inet_handle handle);

private:
    std::mutex m_mutex;  // guards all below
    std::uintptr_t m_last_id = 0;
    std::unordered_map<std::uintptr_t, pointer> m_announced;
    std::unordered_map<inet_handle, pointer> m_open;
};

}  // namespace kro::tessel::os
