#include "tessel/platform/main_thread.h"

#include "os/thread.h"

namespace {

struct main_thread_record {
    unsigned long id = kro::tessel::os::current_thread_id();
    void* handle = kro::tessel::os::current_thread_handle();
};

// Made at the first use, by a static initialiser at the latest: either way in the loading thread, and in
// time for the initialisers of other files.
const main_thread_record& main_thread() {
    static const main_thread_record record;
    return record;
}

[[maybe_unused]] const main_thread_record& g_recorded_at_load = main_thread();

}  // namespace

unsigned long GetMainThreadId() {
    return main_thread().id;
}

void* GetMainThread() {
    return main_thread().handle;
}
