#pragma once
// The expression library's noise and step curves, for the math kit and other code that must
// match what expressions compute without including the library itself. All functions are pure
// and safe to call from many threads at once.

/// The expression language's `noise` of n arguments, each a 3-vector given as three doubles in
/// `args` (3·n values). One argument: 3D noise of that vector. Two to four: noise of that
/// dimension over the first component of each argument. Result in [0, 1]; 0 for n < 1.
double vrSeNoise(int n, const double* args);
/// vrSeNoise of the point (x, y, z), bit for bit, without the packing of arguments: the entry
/// for loops that sample the noise several times per CV.
double vrSeNoise3(double x, double y, double z);
/// Signed 3D noise of (x, y, z), in [-1, 1].
double vrSeSnoise(const double xyz[3]);
/// Signed 3D noise of (x, y, z), periodic with the integer part of each period component (at least
/// 1); in [-1, 1] and equal to vrSeSnoise inside the first period.
double vrSePnoise(const double xyz[3], const double period[3]);
/// 0 below a, 1 from a on.
double vrSeBoxstep(double x, double a);
/// 0 below a, 1 from b on, linear between.
double vrSeLinearstep(double x, double a, double b);
/// 0 below a, 1 from b on, smooth cubic between.
double vrSeSmoothstep(double x, double a, double b);
/// 0 below a, 1 from b on, Gaussian-shaped rise between.
double vrSeGaussstep(double x, double a, double b);
