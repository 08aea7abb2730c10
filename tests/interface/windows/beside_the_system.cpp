// A host on Windows includes both: neither may break the other.
#include <windows.h>
// after it
#include <wininet.h>
// and with all its macros in force
#include <tessel/tessel.h>

static_assert(sizeof(kro::tessel::http::INTERNET_BUFFERSW) == sizeof(::INTERNET_BUFFERSW));
static_assert(REG_QWORD == 11 && sizeof(::HKEY) == sizeof(void*));
