#pragma once

/// Marks what a shared platform library offers to programs; everything else
/// stays hidden inside it (the libraries are built with hidden visibility).
#define KRV_EXPORT __attribute__((visibility("default")))
