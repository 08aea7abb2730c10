// The last error is the thread's own; the boundary turns the library's exceptions into it and no others; the
// main thread is the one that loaded the library.
#include "tessel/platform/last_error.h"

#include "os/thread.h"

#include "platform/exception_boundary.h"
#include "tessel/platform/main_thread.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <thread>

namespace {

using kro::tessel::get_last_error;
using kro::tessel::set_last_error;
using kro::tessel::exception::internal_errno_exception;
using kro::tessel::exception::internal_exception;
using kro::tessel::exception::internal_last_errno_exception;
using kro::tessel::exception::number_of;

// Looked at before any function of the library runs, as a host's own initialisers may do.
const unsigned long k_main_thread_at_start = GetMainThreadId();

TEST(LastError, BelongsToTheThread) {
    set_last_error(5);
    std::thread([] {
        EXPECT_EQ(get_last_error(), 0U);
        set_last_error(87);
        EXPECT_EQ(get_last_error(), 87U);
    }).join();
    EXPECT_NE(get_last_error(), 87U);  // on Windows making a thread may leave another number here
    set_last_error(0xFFFFFFFFUL);
    EXPECT_EQ(get_last_error(), 0xFFFFFFFFUL);
}

void fail_with_the_last_error() {
    set_last_error(1400);
    const internal_last_errno_exception failure;
    set_last_error(0);
    throw failure;
}

TEST(ExceptionBoundary, GivesTheNumberOfEachException) {
    const struct {
        const char* description;
        std::function<void()> body;
        unsigned long error;
    } rows[] = {{"returns", [] {}, 0},
                {"a bad argument", [] { throw internal_errno_exception(87); }, 87},
                {"a failed platform call", fail_with_the_last_error, 1400},
                {"one without a number", [] { throw internal_exception(); }, 3},
                {"no memory", [] { throw std::bad_alloc(); }, 8},
                {"a host's", [] { throw std::runtime_error("not ours"); }, 1359}};
    for (const auto& row : rows) {
        set_last_error(3);
        EXPECT_EQ(number_of(row.body), row.error) << row.description;
    }
}

TEST(MainThread, IsTheOneThatLoadedTheLibrary) {
    const unsigned long here = kro::tessel::os::current_thread_id();
    EXPECT_EQ(k_main_thread_at_start, here);
    std::thread([here] {
        EXPECT_EQ(GetMainThreadId(), here);
        EXPECT_NE(kro::tessel::os::current_thread_id(), here);
        EXPECT_EQ(GetMainThread(), kro::tessel::os::current_thread_handle());
    }).join();
}

}  // namespace
