#pragma once

/// Exports a class or function from a shared platform library. Everything else is hidden:
/// the libraries are built with hidden visibility.
#define KRV_EXPORT __attribute__((visibility("default")))
