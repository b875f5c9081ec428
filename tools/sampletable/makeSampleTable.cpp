// vorn_make_sample_table: writes the blue-noise sample table that getSample reads.
//
//   vorn_make_sample_table OUT.bin
//
// The table is 16 sets of 32,768 points (u, v) in [0, 1). Each set is a progressive blue-noise
// sequence on the unit torus, built by best-candidate selection: for point k (1-based), 256
// uniform candidates are drawn and the one farthest from points 1..k-1 is kept. It must lie at
// wrapped distance >= 0.55/sqrt(k) from every earlier point; if the best falls short, 256 more
// candidates are drawn, and so on (such a spot always exists: k-1 discs of radius
// 0.564/sqrt(k-1) cannot cover the unit square). A prefix of N points therefore keeps a minimum
// distance of 0.55/sqrt(N). Nearest points are found on a uniform grid that wraps around.
//
// Everything is deterministic: each set has a fixed seed and the random source is a SplitMix64
// written out below, so the output is the same bytes with every compiler and standard library.
// The whole table is checked against the distance bound before anything is written; the output
// is 1,048,576 little-endian doubles (set after set, points in order, u then v), written to a
// temporary name and renamed into place.
//
// The table is generated once and committed (geometry/data/sampleTable.bin). Every groom's
// primitive locations come from it, so it must never be regenerated with different settings.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kSetCount = 16;
constexpr unsigned kPointsPerSet = 32768;
constexpr double kSpacing = 0.55;  // point k keeps kSpacing / sqrt(k) from all earlier points
// Candidates are accepted only with this relative margin over the bound, so that a check that
// rounds differently can never see a point fall just short.
constexpr double kAcceptMargin = 1.0 + 1e-9;
constexpr unsigned kCandidatesPerRound = 256;
constexpr unsigned kMaxRounds = 1u << 16;
constexpr std::uint64_t kBaseSeed = 0x566F726E53616D70ull;  // "VornSamp"
constexpr std::uint64_t kSetSeedStep = 0x9E3779B97F4A7C15ull;

/// SplitMix64 (Steele, Lea and Flood), spelled out so the stream never depends on a library.
class SplitMix64 {
 public:
  explicit SplitMix64(std::uint64_t seed) : state(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  /// A double in [0, 1): the top 53 bits scaled by 2^-53.
  double next01() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

 private:
  std::uint64_t state;
};

struct Point {
  double u;
  double v;
};

inline double wrappedDelta(double a, double b) {
  const double d = std::fabs(a - b);
  return d > 0.5 ? 1.0 - d : d;
}

inline double wrappedDistance2(const Point& a, const Point& b) {
  const double du = wrappedDelta(a.u, b.u);
  const double dv = wrappedDelta(a.v, b.v);
  return du * du + dv * dv;
}

inline double bound(unsigned k) { return kSpacing / std::sqrt(static_cast<double>(k)); }

/// Uniform grid over the torus for nearest-point queries. The resolution grows with the point
/// count so that a cell holds about one to two points.
class TorusGrid {
 public:
  static constexpr int kMaxResolution = 128;

  void reset(int resolution) {
    res = resolution;
    cells.assign(static_cast<size_t>(res) * res, {});
  }
  int resolution() const { return res; }

  void insert(const Point& p) { cells[cellIndex(cellOf(p.u), cellOf(p.v))].push_back(p); }

  /// Squared wrapped distance from q to the nearest stored point, or +inf with none stored.
  /// The search stops as soon as the answer is known to be below `floor2`, and then returns a
  /// value below `floor2` that is not necessarily the nearest one.
  double nearest2(const Point& q, double floor2) const {
    const int cu = cellOf(q.u);
    const int cv = cellOf(q.v);
    const double cellSize = 1.0 / res;
    double best2 = INFINITY;
    for (int ring = 0;; ++ring) {
      if (2 * ring + 1 >= res) {
        // The ring reaches around the torus: finish with one plain pass over every cell
        // that the earlier rings did not visit.
        for (int j = 0; j < res; ++j) {
          for (int i = 0; i < res; ++i) {
            if (ring > 0 && ringDistance(i, cu) < ring && ringDistance(j, cv) < ring) continue;
            scanCell(i, j, q, best2);
          }
        }
        return best2;
      }
      if (ring == 0) {
        scanCell(cu, cv, q, best2);
      } else {
        for (int d = -ring; d <= ring; ++d) {
          scanCell(wrap(cu + d), wrap(cv - ring), q, best2);
          scanCell(wrap(cu + d), wrap(cv + ring), q, best2);
        }
        for (int d = -ring + 1; d <= ring - 1; ++d) {
          scanCell(wrap(cu - ring), wrap(cv + d), q, best2);
          scanCell(wrap(cu + ring), wrap(cv + d), q, best2);
        }
      }
      if (best2 < floor2) return best2;
      // Every point outside rings 0..ring lies at least ring cells away.
      const double reach = ring * cellSize;
      if (best2 <= reach * reach) return best2;
    }
  }

 private:
  int cellOf(double x) const { return std::min(static_cast<int>(x * res), res - 1); }
  int wrap(int i) const { return ((i % res) + res) % res; }
  size_t cellIndex(int i, int j) const { return static_cast<size_t>(j) * res + i; }
  int ringDistance(int i, int c) const {
    const int d = std::abs(i - c);
    return std::min(d, res - d);
  }
  void scanCell(int i, int j, const Point& q, double& best2) const {
    for (const Point& p : cells[cellIndex(i, j)]) best2 = std::min(best2, wrappedDistance2(p, q));
  }

  int res = 1;
  std::vector<std::vector<Point>> cells;
};

struct SetStats {
  std::uint64_t candidates = 0;
  unsigned extraRounds = 0;
  unsigned worstRounds = 0;
  double minRatio = INFINITY;  // smallest (distance to earlier points) / bound over the set
};

/// Builds one set by best-candidate selection. Answers false when a point could not be placed.
bool buildSet(unsigned set, std::vector<Point>& points, SetStats& stats) {
  SplitMix64 rng(kBaseSeed + kSetSeedStep * set);
  TorusGrid grid;
  grid.reset(1);
  points.clear();
  points.reserve(kPointsPerSet);

  for (unsigned k = 1; k <= kPointsPerSet; ++k) {
    if (static_cast<unsigned>(grid.resolution()) * grid.resolution() * 2 < k &&
        grid.resolution() < TorusGrid::kMaxResolution) {
      grid.reset(grid.resolution() * 2);
      for (const Point& p : points) grid.insert(p);
    }
    Point best{rng.next01(), rng.next01()};
    if (k > 1) {
      const double need = bound(k) * kAcceptMargin;
      const double need2 = need * need;
      double best2 = grid.nearest2(best, 0.0);
      ++stats.candidates;
      unsigned rounds = 1;
      for (unsigned c = 1;; ++c) {
        if (c == kCandidatesPerRound * rounds) {
          if (best2 >= need2) break;
          if (++rounds > kMaxRounds) {
            std::fprintf(stderr, "set %u: no place found for point %u\n", set, k);
            return false;
          }
        }
        const Point candidate{rng.next01(), rng.next01()};
        const double d2 = grid.nearest2(candidate, best2);
        ++stats.candidates;
        if (d2 > best2) {
          best2 = d2;
          best = candidate;
        }
      }
      stats.extraRounds += rounds - 1;
      stats.worstRounds = std::max(stats.worstRounds, rounds);
    }
    points.push_back(best);
    grid.insert(best);
  }
  return true;
}

/// Checks, independently of the construction, that every point of the set lies in [0, 1) and at
/// wrapped distance >= bound(k) from all earlier points. Records the tightest ratio.
bool verifySet(unsigned set, const std::vector<Point>& points, SetStats& stats) {
  constexpr int res = 128;
  std::vector<std::vector<unsigned>> cells(static_cast<size_t>(res) * res);
  auto cellOf = [](double x) { return std::min(static_cast<int>(x * res), res - 1); };
  if (points.size() != kPointsPerSet) return false;
  for (unsigned k = 1; k <= points.size(); ++k) {
    const Point& p = points[k - 1];
    if (!(p.u >= 0.0 && p.u < 1.0 && p.v >= 0.0 && p.v < 1.0)) {
      std::fprintf(stderr, "set %u: point %u lies outside [0, 1)\n", set, k);
      return false;
    }
    const double r = bound(k);
    const int reach = static_cast<int>(r * res) + 1;
    const int cu = cellOf(p.u);
    const int cv = cellOf(p.v);
    const bool all = 2 * reach + 1 >= res;
    const int lo = all ? 0 : -reach;
    const int hi = all ? res - 1 : reach;
    double nearest = INFINITY;
    for (int dj = lo; dj <= hi; ++dj) {
      const int j = all ? dj : ((cv + dj) % res + res) % res;
      for (int di = lo; di <= hi; ++di) {
        const int i = all ? di : ((cu + di) % res + res) % res;
        for (unsigned other : cells[static_cast<size_t>(j) * res + i]) {
          nearest = std::min(nearest, std::sqrt(wrappedDistance2(p, points[other])));
        }
      }
    }
    if (k > 1) {
      if (!(nearest >= r)) {
        std::fprintf(stderr, "set %u: point %u lies %.9g from an earlier point, below %.9g\n", set,
                     k, nearest, r);
        return false;
      }
      // Beyond the searched cells the distance is only known to exceed r.
      if (nearest < INFINITY) stats.minRatio = std::min(stats.minRatio, nearest / r);
    }
    cells[static_cast<size_t>(cellOf(p.v)) * res + cellOf(p.u)].push_back(k - 1);
  }
  return true;
}

void appendLittleEndian(std::vector<unsigned char>& out, double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  for (int b = 0; b < 8; ++b) out.push_back(static_cast<unsigned char>(bits >> (8 * b)));
}

bool writeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
  const std::string temp = path + ".tmp";
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) {
    std::fprintf(stderr, "cannot open %s for writing\n", temp.c_str());
    return false;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed) {
    std::fprintf(stderr, "cannot write %s\n", temp.c_str());
    std::remove(temp.c_str());
    return false;
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    std::fprintf(stderr, "cannot rename %s to %s\n", temp.c_str(), path.c_str());
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT.bin\n", argc > 0 ? argv[0] : "vorn_make_sample_table");
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();

  std::vector<unsigned char> bytes;
  bytes.reserve(static_cast<size_t>(kSetCount) * kPointsPerSet * 2 * sizeof(double));
  std::vector<Point> points;
  for (unsigned set = 0; set < kSetCount; ++set) {
    SetStats stats;
    if (!buildSet(set, points, stats) || !verifySet(set, points, stats)) return 1;
    std::printf("set %2u: %llu candidates, %u extra rounds (most rounds for one point: %u), "
                "tightest point at %.4f x its bound\n",
                set, static_cast<unsigned long long>(stats.candidates), stats.extraRounds,
                stats.worstRounds, stats.minRatio);
    std::fflush(stdout);
    for (const Point& p : points) {
      appendLittleEndian(bytes, p.u);
      appendLittleEndian(bytes, p.v);
    }
  }
  if (!writeFile(argv[1], bytes)) return 1;

  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("wrote %zu bytes to %s in %.1f s\n", bytes.size(), argv[1], seconds);
  return 0;
}
