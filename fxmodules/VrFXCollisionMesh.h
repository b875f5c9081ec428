#pragma once
// The collision mesh of an FX module: every mesh of an Alembic file, read at the collection's
// frame and built into one bounding tree. Main thread only; the tree it answers is read-only
// and may be queried from any number of workers.

#include "geometry/TzBoundingTree.h"

#include <memory>
#include <string>

class VrFXModule;

/// Reads `meshFile` (macros expanded, found along the collection's data path) for `module`.
/// A file that cannot be found or read, or that holds no mesh, deactivates the module with
/// "Errors in reading geometry from file " + path + ". Deactivating the module. [...]"; a mesh
/// the tree cannot be built over, with "Errors occurred when building bounding tree.
/// Deactivating the module. [...]". Null in both cases.
std::shared_ptr<const TzBoundingTree> VrLoadCollisionMesh(VrFXModule& module, const std::string& meshFile);
