#include "expressions/VrSeExprMath.h"

#include <KSeExpr/ExprBuiltins.h>
#include <KSeExpr/Vec.h>

double vrSeNoise(int n, const double* args) {
  if (n < 1 || !args) return 0.0;
  if (n > 4) n = 4;  // the library reads at most four arguments
  KSeExpr::Vec3d v[4];
  for (int i = 0; i < n; ++i) v[i] = KSeExpr::Vec3d(args[3 * i], args[3 * i + 1], args[3 * i + 2]);
  return KSeExpr::noise(n, v);
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
