#pragma once

/// Marks what the shared library offers to other binaries. Everything else is compiled with hidden visibility.
#define QUEN_EXPORT __attribute__((visibility("default")))
