#pragma once
// VrGeometryRendererDataHelper: turns one primitive into polygons for a host's mesh: points,
// faces (counter-clockwise seen from the side the shape faces) and one uv per point.
//
//   spline    a strip along the CVs (`Ribbon`), two strips crossed at right angles (`Cross`) or a
//             closed tube of `tubeSides` sides (`Tube`). One row of points per CV; across it
//             `calculateSpan` columns. The width at each CV is the one given; `curvature` bends
//             a strip across its width (edges raised by curvature x half the width along the
//             strip's normal). Local uv: u across (0 to 1), v from root (0) to tip (1).
//   card      the 5 x 5 grid that follows the card's bend (VrCardMeshSpool::grid), 16 quads.
//   sphere    a UV sphere of `sphereRings` x `sphereSectors`, triangles at the poles, quads
//             between; u around the length axis, v from root to tip.
//   archive   the merged mesh of its files (VrArchiveMesh) in the archive's frame, the files'
//             points and faces as they are, uvs projected from the files' x and y across their
//             box; or, without it, the box of its files in the archive's frame: six quads of
//             four points each, each face's uv over the whole square.
//
// The uvs a builder writes are the primitive's own square; `layoutUVs` moves them into their
// place once the order of all primitives is known. A helper is read-only once made; any number
// of threads may build with one.

#include "geometry/SgVec3T.h"
#include "io/output/VrMeshFile.h"

#include <cstdint>
#include <vector>

class VrArchiveMesh;

/// The settings of a GeometryRenderer that shape the polygons.
struct VrMeshSettings {
  enum Shape { Ribbon = 0, Cross = 1, Tube = 2 };
  enum Orientation { AsDescription = 0, AlignSurfaceNormal = 1 };
  enum UVLayout { Overlap = 0, SideBySide = 1 };

  int shape = Ribbon;
  int orientation = AsDescription;
  bool insertWidthSpan = false;
  int widthSpanNum = 1;
  double curvature = 0.0;
  bool uvInTiles = false;
  int uvLayout = Overlap;
  double uvTileSeparation = 0.0;
};

class VrGeometryRendererDataHelper {
 public:
  static constexpr int tubeSides = 6;
  static constexpr int sphereRings = 8;
  static constexpr int sphereSectors = 12;

  explicit VrGeometryRendererDataHelper(const VrMeshSettings& settings) : settings(settings) {}

  /// Columns of faces across one strip: `widthSpanNum` (at least 1) with `insertWidthSpan`,
  /// else 1; `tubeSides` around a tube.
  int calculateSpan() const;

  /// Appends the spline with CVs `cvs` (two or more) and one width per CV. The strip spreads
  /// along `side` (the primitive's sideways direction) or, with `AlignSurfaceNormal`, lies flat
  /// to the surface whose normal at the root is `normal`; each CV takes the part of that
  /// direction square to the spline there, and `side` stands in where the spline runs along the
  /// normal. False (nothing added) for fewer than two CVs or a width missing.
  bool addDataForSplinePrim(const std::vector<SgVec3T<double>>& cvs, const std::vector<float>& widths,
                            const SgVec3T<double>& side, const SgVec3T<double>& normal, VrMeshData& out) const;
  /// Appends the card of five control points (root, bend and edge along u, then along v).
  /// False for fewer than five.
  bool addDataForCardPrim(const std::vector<SgVec3T<double>>& controlPoints, VrMeshData& out) const;
  /// Appends the ellipsoid of a sphere's control points (root, tip, width handle, depth handle,
  /// the handles from the midpoint of root and tip). False for fewer than four.
  bool addDataForSpherePrim(const std::vector<SgVec3T<double>>& controlPoints, VrMeshData& out) const;
  /// Appends the box with corner `corner` and edges `edges`.
  void addDataForArchivePrim(const SgVec3T<double>& corner, const SgVec3T<double> edges[3], VrMeshData& out) const;
  /// Appends `mesh`, each point p at `origin` + p.x `axes[0]` + p.y `axes[1]` + p.z `axes[2]`
  /// (faces turned the other way in a left-handed frame, so that they still face out).
  void addDataForArchiveMesh(const VrArchiveMesh& mesh, const SgVec3T<double>& origin, const SgVec3T<double> axes[3],
                             VrMeshData& out) const;

  /// Moves the uvs of primitive `index` of `count` (its points from `firstPoint` on) from its own
  /// square into its place: with `uvInTiles` tile `index` (ten tiles a row, 1001 first), shrunk
  /// by `uvTileSeparation` on every side; with `SideBySide` the `index`th of `count` slots across
  /// the unit square, shrunk by half the separation on each side; with `Overlap` the square.
  void layoutUVs(VrMeshData& mesh, size_t firstPoint, size_t index, size_t count) const;

  const VrMeshSettings& meshSettings() const { return settings; }

 private:
  // One strip of `columns` + 1 points a row, spreading along `sides[i]` at CV i.
  void addStrip(const std::vector<SgVec3T<double>>& cvs, const std::vector<float>& widths,
                const std::vector<SgVec3T<double>>& sides, const std::vector<SgVec3T<double>>& tangents,
                VrMeshData& out) const;
  void addTube(const std::vector<SgVec3T<double>>& cvs, const std::vector<float>& widths,
               const std::vector<SgVec3T<double>>& sides, const std::vector<SgVec3T<double>>& tangents,
               VrMeshData& out) const;

  VrMeshSettings settings;
};
