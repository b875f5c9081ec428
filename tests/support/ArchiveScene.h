#pragma once
// A flat 4 x 4 patch "body" of archive primitives scattered at random, every level of detail of
// their one group naming the same file: typically a tetrahedron the test writes.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "io/output/VrMeshFile.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vrtest {

/// The tetrahedron's points and its faces, counter-clockwise seen from outside.
inline const std::vector<float> tetraPoints = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
inline const std::vector<int32_t> tetraFaces = {0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3};

/// Writes the tetrahedron as the only mesh of `dir`/`name`; answers the path.
inline std::string writeTetra(const TempDir& dir, const std::string& name = "tetra.abc") {
  VrMeshData mesh;
  mesh.positions = tetraPoints;
  mesh.uvs.assign(8, 0.0f);
  mesh.faceCounts = {3, 3, 3, 3};
  mesh.faceIndices = tetraFaces;
  VrMeshFile file;
  const std::string path = dir.file(name);
  EXPECT_TRUE(file.open(path, 1.0, 24.0) && file.addMesh("tetra", mesh, false) && file.close());
  return path;
}

struct ArchiveScene : PatchScene {
  /// Archives (about 30) whose six levels all name `file`.
  explicit ArchiveScene(const std::string& file) : PatchScene(gridSurface(4), nullptr, "rocks") {
    palette->setAttr("name", "archiveScene");
    EXPECT_TRUE(description->setActive("ArchivePrimitive"));
    EXPECT_TRUE(description->setActive("RandomGenerator"));
    description->activeGenerator()->setAttr("density", "2");
    std::string list = "#ArchiveGroup 0 name=rock\\n";
    for (int level = 0; level < 6; ++level) list += std::to_string(level) + " " + file + "\\n";
    description->activePrimitive()->setAttr("files", list, "string");
  }
};

}  // namespace vrtest
