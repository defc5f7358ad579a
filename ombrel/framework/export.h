// SPDX-License-Identifier: MIT
// OMBREL_API marks what the shared library exports: the public classes and functions. Everything else is
// built with hidden visibility, so kernels and internal helpers are neither exported nor interposable.
#pragma once

#if defined(OMBREL_STATIC_DEFINE)
#define OMBREL_API
#else
#define OMBREL_API __attribute__((visibility("default")))
#endif
