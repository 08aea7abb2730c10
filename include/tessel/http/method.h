// The request methods and their names.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>

/// Request methods; the value is the row in the table of names. What isn't GET, HEAD or DELETE carries a
/// body.
enum http_method_t : std::int32_t {
    http_method_options = 0,
    http_method_get = 1,
    http_method_head = 2,
    http_method_post = 3,
    http_method_put = 4,
    http_method_delete = 5,
    http_method_trace = 6,
    http_method_bcopy = 7,
    http_method_bdelete = 8,
    http_method_bmove = 9,
    http_method_bpropfind = 10,
    http_method_bproppatch = 11,
    http_method_copy = 12,
    http_method_lock = 13,
    http_method_mkcol = 14,
    http_method_move = 15,
    http_method_notify = 16,
    http_method_poll = 17,
    http_method_propfind = 18,
    http_method_proppatch = 19,
    http_method_search = 20,
    http_method_subscribe = 21,
    http_method_unlock = 22,
    http_method_unsubscribe = 23,
    http_method_x_ms_enumatts = 24,
};

/// The verb of a method, zero-terminated, in static storage. `method` must be one of the 25 values: nothing
/// checks it. Thread: any, as for the next.
TESSEL_API const wchar* get_http_method_name(http_method_t method);

/// The method of a verb, compared without case; every other text, null included, gives GET.
TESSEL_API http_method_t get_http_method_by_name(const wchar* name);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
inline http_method_t get_http_method_by_name(const wchar_t* name) {
    return get_http_method_by_name(kro::tessel::from_wchar_t(name).c_str());
}
#endif
