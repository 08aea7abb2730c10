// The only place that includes Expat's header: its 8-bit and its 16-bit build share it, and a source compiled
// for the wrong one links and then misreads every text.
#pragma once

#define XML_UNICODE
#include "tessel/base/types.h"

#include <expat.h>

static_assert(sizeof(XML_Char) == sizeof(wchar), "Expat's characters are UTF-16 units");
