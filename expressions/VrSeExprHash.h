#pragma once
// The expression library's number hash and range compression, for code that must draw the same
// per-location values as expressions do without including the library itself.

/// The expression language's `hash` of n numbers, in [0, 1).
double vrSeExprHash(int n, double* args);
/// The expression language's `compress`: maps x from [0, 1] onto [lo, hi].
double vrSeExprCompress(double x, double lo, double hi);
