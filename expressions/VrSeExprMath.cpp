#include "expressions/VrSeExprMath.h"

#include <KSeExpr/ExprBuiltins.h>
#include <KSeExpr/Noise.h>
#include <KSeExpr/Vec.h>

double vrSeNoise(int n, const double* args) {
  if (n < 1 || !args) return 0.0;
  if (n > 4) n = 4;  // the library reads at most four arguments
  KSeExpr::Vec3d v[4];
  for (int i = 0; i < n; ++i) v[i] = KSeExpr::Vec3d(args[3 * i], args[3 * i + 1], args[3 * i + 2]);
  return KSeExpr::noise(n, v);
}

// The library's 3D noise template, which its `noise` calls for one argument or three, taken to
// [0, 1] as `noise` takes it.
double vrSeNoise3(double x, double y, double z) {
  const double p[3] = {x, y, z};
  double result = 0.0;
  KSeExpr::Noise<3, 1>(p, &result);
  return result * 0.5 + 0.5;
}

double vrSeSnoise(const double xyz[3]) { return KSeExpr::snoise(KSeExpr::Vec3d(xyz[0], xyz[1], xyz[2])); }

double vrSePnoise(const double xyz[3], const double period[3]) {
  return KSeExpr::pnoise(KSeExpr::Vec3d(xyz[0], xyz[1], xyz[2]),
                         KSeExpr::Vec3d(period[0], period[1], period[2]));
}

double vrSeBoxstep(double x, double a) { return KSeExpr::boxstep(x, a); }
double vrSeLinearstep(double x, double a, double b) { return KSeExpr::linearstep(x, a, b); }
double vrSeSmoothstep(double x, double a, double b) { return KSeExpr::smoothstep(x, a, b); }
double vrSeGaussstep(double x, double a, double b) { return KSeExpr::gaussstep(x, a, b); }
