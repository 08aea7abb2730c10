// Everything that a host may use.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/trace.h>
#include <tessel/base/types.h>
#include <tessel/platform/exception.h>
#include <tessel/platform/host.h>
#include <tessel/platform/last_error.h>
#include <tessel/platform/main_thread.h>
