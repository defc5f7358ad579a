// SPDX-License-Identifier: MIT
// The documentation check's own sample: one documented function and two undocumented names, which the check
// must report.
#pragma once

/// \file
/// A sample public header.

/// Documented: the check accepts it.
int Documented(int x);

int Undocumented(int x);

class Bare {
  public:
    /// Documented member of an undocumented class.
    int Value() const;
};
