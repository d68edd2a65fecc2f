// Marks what each host library exports; the libraries are built with hidden visibility, so
// everything else stays inside them. One name per library says whose declaration it is.
#pragma once

#define KRV_HOST_EXPORT __attribute__((visibility("default")))

#define VANTRY_UTIL_EXPORT KRV_HOST_EXPORT
#define VANTRY_SERVICE_HANDLER_EXPORT KRV_HOST_EXPORT
#define VANTRY_ZEL_EXPORT KRV_HOST_EXPORT
#define VANTRY_ACCESS_KORLIB_EXPORT KRV_HOST_EXPORT
#define VANTRY_DATA_EXPORT KRV_HOST_EXPORT
#define VANTRY_PROCESS_EXPORT KRV_HOST_EXPORT
