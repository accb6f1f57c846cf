#pragma once

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PelNexthopMapperSm");

/// A trace of a step that stands in a function of its own but is told as the named handler's.
#define PEL_TRACE_OF(level, handlerName, text, ...)                      \
    do {                                                                 \
        static constinit ::Blink::CallSite pelSite{                      \
            level, text, __FILE__, handlerName, __LINE__, {}};           \
        if (::Blink::wanted(pelSite, blinkTraceHandle())) {              \
            ::Blink::trace<::Blink::placeholders(text)>(                 \
                pelSite, blinkTraceHandle() __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                \
    } while (false)
