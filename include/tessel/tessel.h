// Everything that a host may use.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/trace.h>
#include <tessel/base/types.h>
#include <tessel/http/buffer_content.h>
#include <tessel/http/engine.h>
#include <tessel/http/method.h>
#include <tessel/http/proxy_info.h>
#include <tessel/http/response.h>
#include <tessel/http/session.h>
#include <tessel/http/session_context.h>
#include <tessel/http/url.h>
#include <tessel/i18n/inifile_locale.h>
#include <tessel/i18n/locale.h>
#include <tessel/i18n/locale_args.h>
#include <tessel/platform/exception.h>
#include <tessel/platform/fast_delegate.h>
#include <tessel/platform/host.h>
#include <tessel/platform/last_error.h>
#include <tessel/platform/main_thread.h>
#include <tessel/platform/timer.h>
#include <tessel/xml/xml_handler.h>
#include <tessel/xml/xml_parser.h>
